#include "UpdateKit/UpdateCheckState.h"

#include <gtest/gtest.h>

namespace {

const Url overNetwork = *Url::parse("https://host/latest.json");
const Url inFile = *Url::parse("file:///srv/latest.json");

TEST(UpdateCheckStateTest, TheUsersCheckIsAdmittedWhateverTheNetworkSays) {
    for (const auto network : {std::optional<bool>(), std::optional(false), std::optional(true)}) {
        UpdateCheckState state;
        EXPECT_TRUE(state.begin(UpdateCheckMode::manual, overNetwork, network));
        EXPECT_TRUE(state.isCheckingForUpdates);
    }
}

TEST(UpdateCheckStateTest, AnAutomaticCheckNeedsANetworkThatIsKnownToBeThere) {
    UpdateCheckState state;
    EXPECT_FALSE(state.begin(UpdateCheckMode::automatic, overNetwork, std::nullopt));
    EXPECT_FALSE(state.begin(UpdateCheckMode::automatic, overNetwork, false));
    EXPECT_FALSE(state.isCheckingForUpdates);
    EXPECT_TRUE(state.begin(UpdateCheckMode::automatic, overNetwork, true));
}

TEST(UpdateCheckStateTest, AManifestInAFileNeedsNoNetwork) {
    UpdateCheckState state;
    EXPECT_TRUE(state.begin(UpdateCheckMode::automatic, inFile, std::nullopt));
    state = {};
    EXPECT_TRUE(state.begin(UpdateCheckMode::automatic, *Url::parse("FILE:///x"), false));
}

TEST(UpdateCheckStateTest, OneCheckRunsAtATime) {
    for (const auto mode : {UpdateCheckMode::manual, UpdateCheckMode::automatic}) {
        UpdateCheckState state{true};
        EXPECT_FALSE(state.begin(mode, inFile, true));
        EXPECT_TRUE(state.isCheckingForUpdates);
    }
}

}  // namespace
