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
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Prints a line for each ratio of which both sides have run.
    void printRatios(const std::vector<Ratio>& ratios) const;

private:
    std::map<std::string, double> medians;  // real time, in the run's unit
};

/// Runs the benchmarks of the program, several times each and in a random order, so that a slow minute of
/// the machine does not hit one side alone, and prints the ratios. Options given by the user win.
/// @return the program's exit status
int runBenchmarks(int count, char** arguments, const std::vector<Ratio>& ratios);
