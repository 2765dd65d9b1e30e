#include "Ratios.h"

#include <cstdio>

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs)
        if (run.aggregate_name == "median" && !run.error_occurred)
            medians[run.run_name.function_name] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
}

void RatioReporter::printRatios(const std::vector<Ratio>& ratios) const {
    std::printf("\n%-58s %8s %8s\n", "Ratio of medians", "measured", "at most");
    for (const Ratio& ratio : ratios) {
        const auto numerator = medians.find(ratio.numerator);
        const auto denominator = medians.find(ratio.denominator);
        if (numerator == medians.end() || denominator == medians.end()) continue;
        const double measured = numerator->second / denominator->second;
        std::printf("%-58s %8.2f %8.2f%s\n", ratio.name.c_str(), measured, ratio.atMost,
                    measured <= ratio.atMost ? "" : "  NOT REACHED");
    }
}

int runBenchmarks(int count, char** arguments, const std::vector<Ratio>& ratios) {
    std::vector<std::string> all = {arguments[0], "--benchmark_repetitions=9",
                                    "--benchmark_enable_random_interleaving=true",
                                    "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.2"};
    // Those of the user come later, and win.
    all.insert(all.end(), arguments + 1, arguments + count);
    std::vector<char*> pointers;
    for (std::string& argument : all) pointers.push_back(argument.data());
    int left = static_cast<int>(pointers.size());
    benchmark::Initialize(&left, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(left, pointers.data())) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios(ratios);
    return 0;
}
