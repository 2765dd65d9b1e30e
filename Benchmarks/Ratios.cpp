#include "Ratios.h"

#include <cstdio>

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    std::vector<Run> shown;
    for (const Run& run : runs) {
        failed |= run.error_occurred;
        // Of repeated benchmarks print only the aggregates and the runs that failed, which aggregates leave out.
        if (run.run_type == Run::RT_Aggregate || run.repetitions <= 1 || run.error_occurred) shown.push_back(run);
        if (run.aggregate_name == "median" && !run.error_occurred)
            medians[run.run_name.function_name] =
                run.run_name.time_type.empty() ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime();
    }
    if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
}

bool RatioReporter::printRatios(const std::vector<Ratio>& ratios) const {
    std::printf("\n%-66s %8s %8s\n", "Ratio of medians", "measured", "at most");
    bool isReached = true;
    for (const Ratio& ratio : ratios) {
        const auto numerator = medians.find(ratio.numerator);
        const auto denominator = medians.find(ratio.denominator);
        if (numerator == medians.end() || denominator == medians.end()) continue;
        const double measured = numerator->second / denominator->second;
        const bool isWithin = measured <= ratio.atMost;
        isReached &= isWithin;
        std::printf("%-66s %8.2f %8.2f%s\n", ratio.name.c_str(), measured, ratio.atMost,
                    isWithin ? "" : "  NOT REACHED");
    }
    return isReached;
}

int runBenchmarks(int count, char** arguments, const std::vector<Ratio>& ratios) {
    std::vector<std::string> all = {arguments[0], "--benchmark_repetitions=9",
                                    "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.2"};
    // The user's options come later, and so override ours.
    all.insert(all.end(), arguments + 1, arguments + count);
    std::vector<char*> pointers;
    for (std::string& argument : all) pointers.push_back(argument.data());
    int left = static_cast<int>(pointers.size());
    benchmark::Initialize(&left, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(left, pointers.data())) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const bool isReached = reporter.printRatios(ratios);
    return isReached && !reporter.hasFailed() ? 0 : 1;
}
