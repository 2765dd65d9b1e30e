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
