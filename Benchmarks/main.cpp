#include "Ratios.h"

#include <vector>

namespace {

const std::vector<Ratio> ratios = {
    {"A text sealed for 1,000 people, against the bare boxes", "sealThroughSocket", "sealBare", 1.5},
    {"10,000 packs opened and folded, against the bare boxes", "foldThroughKit", "openBare", 3.0},
    {"A commit at history 100,000, against 100", "commitAt100000", "commitAt100", 1.5},
    {"Loading 100,000 messages, against the plain library", "loadState", "loadPlain", 1.5},
    {"Saving 100,000 messages, against the plain library", "saveState", "savePlain", 1.5},
    {"Relay, processor time of a delivered pack, against ws", "deliverThroughRelay", "deliverThroughRouter", 0.4},
};

}  // namespace

int main(int argc, char** argv) { return runBenchmarks(argc, argv, ratios); }
