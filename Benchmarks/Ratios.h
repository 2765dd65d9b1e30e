#pragma once

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

/// What one benchmark costs against another of the same run, and what it may cost.
struct Ratio {
    std::string name;
    std::string numerator;    // a benchmark's name
    std::string denominator;  // likewise
    double atMost;            // the goal
};

/// Prints what the ordinary console reporter prints, and at the end the ratio of the medians of each
/// pair. Absolute times depend on the machine; ratios within one run hardly do.
///
/// What is compared is the processor's time, which other programs on the machine hardly change, unless a benchmark
/// says that its time is the clock's or its own.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Prints a line for each ratio of which both sides have run. @return whether all are within their limits
    bool printRatios(const std::vector<Ratio>& ratios) const;
    /// Whether any run gave up, also where others of the same benchmark went well.
    bool hasFailed() const { return failed; }

private:
    std::map<std::string, double> medians;  // in the run's unit
    bool failed = false;
};

/// Runs the benchmarks of the program, several times each and in a random order, so that a slow minute of
/// the machine does not hit one side alone, and prints the ratios. Options given by the user win.
/// @return the program's exit status: 0 if nothing failed and each ratio is within its limit
int runBenchmarks(int count, char** arguments, const std::vector<Ratio>& ratios);
