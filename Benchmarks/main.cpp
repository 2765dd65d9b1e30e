#include "Ratios.h"

#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

const std::vector<Ratio> ratios = {
    {"A text sealed for 1,000 people, against the bare boxes", "sealThroughSocket", "sealBare", 1.5},
    {"10,000 packs opened and folded, against the bare boxes", "foldThroughKit", "openBare", 3.0},
    {"A commit at history 100,000, against 100", "commitAt100000", "commitAt100", 1.5},
    {"Loading 100,000 messages, against the plain library", "loadState", "loadPlain", 1.5},
    {"Saving 100,000 messages, against the plain library", "saveState", "savePlain", 1.5},
    {"Relay, processor time of a delivered pack, against ws", "deliverThroughRelay", "deliverThroughRouter", 0.4},
};

/// Several runs of each, of which the median counts, in a random order, so that a slow minute of the
/// machine does not hit one side alone. Options given by the user come later and win.
std::vector<char*> withDefaults(int count, char** arguments, std::vector<std::string>& storage) {
    storage = {arguments[0], "--benchmark_repetitions=9", "--benchmark_enable_random_interleaving=true",
               "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.2"};
    storage.insert(storage.end(), arguments + 1, arguments + count);
    std::vector<char*> pointers;
    for (std::string& argument : storage) pointers.push_back(argument.data());
    return pointers;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> storage;
    auto arguments = withDefaults(argc, argv, storage);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios(ratios);
    return 0;
}
