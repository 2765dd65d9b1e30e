#include "Simulation/Simulation.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

namespace {

void runSeeds(std::uint64_t first, std::uint64_t last) {
    for (std::uint64_t seed = first; seed <= last; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed) + "; to see it: ./simulate --seed " + std::to_string(seed));
        const auto result = Simulation::run(seed);
        EXPECT_EQ(result.failure.value_or(""), "");
        // A storm in which nothing was said proves nothing.
        EXPECT_GT(result.packs, 0u);
    }
}

std::string trace(std::uint64_t seed) {
    std::ostringstream lines;
    Simulation::run(seed, &lines);
    return lines.str();
}

}  // namespace

// Four tests instead of one, so that they can run side by side.
TEST(SimulationTest, EveryTextIsWhereItBelongsAfterTheStormsOfSeeds1To50) { runSeeds(1, 50); }
TEST(SimulationTest, EveryTextIsWhereItBelongsAfterTheStormsOfSeeds51To100) { runSeeds(51, 100); }
TEST(SimulationTest, EveryTextIsWhereItBelongsAfterTheStormsOfSeeds101To150) { runSeeds(101, 150); }
TEST(SimulationTest, EveryTextIsWhereItBelongsAfterTheStormsOfSeeds151To200) { runSeeds(151, 200); }

TEST(SimulationTest, ASeedReplaysLineByLine) {
    const std::string first = trace(7);
    EXPECT_GT(first.size(), 10000u);
    EXPECT_EQ(first, trace(7));
}
