#pragma once

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

/// What one benchmark costs compared with another of the same run, and the limit of that.
struct Ratio {
    std::string name;
    std::string numerator;    // a benchmark's name
    std::string denominator;  // likewise
    double atMost;            // the limit
};

/// Prints what the ordinary console reporter prints, and at the end the ratio of the medians of each
/// pair. Absolute times depend on the machine; ratios within one run hardly do.
///
/// The ratios compare processor time, which other programs on the machine hardly change. Benchmarks that use real or
/// manual time are compared by that.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Prints a line for each ratio of which both sides have run. @return whether all are within their limits
    bool printRatios(const std::vector<Ratio>& ratios) const;
    /// Whether any single run has failed, even if other runs of the same benchmark have not.
    bool hasFailed() const { return failed; }

private:
    std::map<std::string, double> medians;  // in the run's unit
    bool failed = false;
};

/// Runs the program's benchmarks and prints the ratios. Each runs several times, in a random order, so that a
/// slow minute of the machine does not hit one side of a ratio alone. The user's options override these.
/// @return the program's exit status: 0 if nothing failed and each ratio is within its limit
int runBenchmarks(int count, char** arguments, const std::vector<Ratio>& ratios);
