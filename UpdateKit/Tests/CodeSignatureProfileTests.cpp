#include "UpdateKit/CodeSignatureProfile.h"

#include <gtest/gtest.h>

namespace {

using Profile = CodeSignatureProfile;
using Kind = CodeSignatureProfile::Kind;

const std::vector<std::string> chain{"Leaf (11)", "Root (22)"};

TEST(CodeSignatureProfileTest, TheToolsLinesBecomeAProfile) {
    const auto profile = Profile::parse(
        "Executable=/x\nIdentifier=zorvane.Vimble\nAuthority=Leaf (11)\nAuthority=Root (22)\nTeamIdentifier=ZORVANE\n");
    EXPECT_EQ(profile, (Profile{Kind::signed_, "ZORVANE", chain}));
}

TEST(CodeSignatureProfileTest, AnAdHocSealIsTheWholeLine) {
    EXPECT_EQ(Profile::parse("Signature=adhoc\nTeamIdentifier=not set\n"), (Profile{Kind::adhoc, std::nullopt, {}}));
    EXPECT_EQ(Profile::parse("a\n\nSignature=adhoc").kind, Kind::adhoc);
    for (const char* output : {"Signature=adhoc \n", " Signature=adhoc\n", "Signature=adhoc\r\n", "signature=adhoc\n",
                               "xSignature=adhoc\n", "Signature=adhoc2\n", "Signature=\n"})
        EXPECT_EQ(Profile::parse(output).kind, Kind::signed_) << output;
}

TEST(CodeSignatureProfileTest, OnlyTheFirstTeamCounts) {
    EXPECT_EQ(Profile::parse("TeamIdentifier=A\nTeamIdentifier=B\n").teamIdentifier, "A");
    EXPECT_EQ(Profile::parse("TeamIdentifier=not set\nTeamIdentifier=B\n").teamIdentifier, std::nullopt);
    EXPECT_EQ(Profile::parse("x TeamIdentifier=A\n").teamIdentifier, std::nullopt);
    EXPECT_EQ(Profile::parse("").teamIdentifier, std::nullopt);
}

TEST(CodeSignatureProfileTest, OfSeveralSignsTheFirstSplits) {
    EXPECT_EQ(Profile::parse("TeamIdentifier=a=b\nAuthority==x=\n"), (Profile{Kind::signed_, "a=b", {"=x="}}));
}

TEST(CodeSignatureProfileTest, ALineWithNothingBehindItsSignYieldsTheWord) {
    EXPECT_EQ(Profile::parse("TeamIdentifier=\nAuthority=\n"),
              (Profile{Kind::signed_, "TeamIdentifier", {"Authority"}}));
}

TEST(CodeSignatureProfileTest, NothingIsTrimmed) {
    EXPECT_EQ(Profile::parse("Authority= A \nTeamIdentifier= not set").authorityChain, std::vector<std::string>{" A "});
    EXPECT_EQ(Profile::parse("TeamIdentifier= not set").teamIdentifier, " not set");
}

/// Whether the two match, which must be the same in both directions.
bool match(const Profile& a, const Profile& b) {
    EXPECT_EQ(a.matches(b), b.matches(a));
    return a.matches(b);
}

TEST(CodeSignatureProfileTest, AdHocMatchesAdHocWhateverElseDiffers) {
    EXPECT_TRUE(match({Kind::adhoc, std::nullopt, {}}, {Kind::adhoc, "T", chain}));
}

TEST(CodeSignatureProfileTest, AdHocNeverMatchesSigned) {
    EXPECT_FALSE(match({Kind::adhoc, "T", chain}, {Kind::signed_, "T", chain}));
}

TEST(CodeSignatureProfileTest, OneTeamNeedsEqualChains) {
    EXPECT_TRUE(match({Kind::signed_, "T", chain}, {Kind::signed_, "T", chain}));
    EXPECT_FALSE(match({Kind::signed_, "T", chain}, {Kind::signed_, "T", {"Leaf (11)"}}));
    EXPECT_FALSE(match({Kind::signed_, "T", chain}, {Kind::signed_, "T", {"Root (22)", "Leaf (11)"}}));
    EXPECT_FALSE(match({Kind::signed_, "T", chain}, {Kind::signed_, "T", {"Leaf (12)", "Root (22)"}}));
    EXPECT_TRUE(match({Kind::signed_, "T", {}}, {Kind::signed_, "T", {}}));
}

TEST(CodeSignatureProfileTest, WithoutOneTeamAnEqualChainThatIsNotEmptyMatches) {
    EXPECT_TRUE(match({Kind::signed_, "T", chain}, {Kind::signed_, "U", chain}));
    EXPECT_TRUE(match({Kind::signed_, "T", chain}, {Kind::signed_, std::nullopt, chain}));
    EXPECT_TRUE(match({Kind::signed_, "", chain}, {Kind::signed_, "", chain}));
    EXPECT_FALSE(match({Kind::signed_, "T", {}}, {Kind::signed_, "U", {}}));
    EXPECT_FALSE(match({Kind::signed_, "", {}}, {Kind::signed_, "", {}}));
    EXPECT_FALSE(match({Kind::signed_, std::nullopt, {}}, {Kind::signed_, std::nullopt, {}}));
    EXPECT_FALSE(match({Kind::signed_, std::nullopt, {}}, {Kind::signed_, std::nullopt, chain}));
}

}  // namespace
