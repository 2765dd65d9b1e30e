#include "UpdateKit/SemanticVersion.h"

#include "UpdateKit/UpdateKitError.h"

#include <gtest/gtest.h>
#include <unordered_set>

namespace {

std::string described(const char* text) { return SemanticVersion::parse(text).description(); }

void expectRefused(std::string_view text) {
    try {
        (void)SemanticVersion::parse(text);
        ADD_FAILURE() << "taken: " << text;
    } catch (const UpdateKitError& error) {
        EXPECT_EQ(error, UpdateKitError(UpdateKitError::Code::invalidVersion, text));
        EXPECT_EQ(error.localizedDescription(), "Unable to parse version: " + std::string(text));
    }
}

TEST(SemanticVersionTest, OneToThreeNumbersAreAVersion) {
    EXPECT_EQ(described("1"), "1.0.0");
    EXPECT_EQ(described("1.2"), "1.2.0");
    EXPECT_EQ(described("1.2.3"), "1.2.3");
    EXPECT_EQ(described("v2"), "2.0.0");
    EXPECT_EQ(described("24.04"), "24.4.0");
    EXPECT_EQ(described("+1.+2.+3"), "1.2.3");
    EXPECT_EQ(described("9223372036854775807.0.-9223372036854775808"), "9223372036854775807.0.-9223372036854775808");
}

TEST(SemanticVersionTest, WhitespaceAroundItIsDropped) {
    EXPECT_EQ(described("  v1.2.3\n"), "1.2.3");
    EXPECT_EQ(described("\u00A0\u20281.2\u3000\r\n"), "1.2.0");
}

TEST(SemanticVersionTest, AnythingElseIsRefusedWithTheTextAsItCame) {
    for (const char* text : {"",           "v",      " v ",   "1.2.3.4", "1..3",     "1.2.",    ".1",
                             "V1.2.3",     "vv1.0",  "v 1.0", "1. 2",    "1.2.3-rc", "1.2.x",   "0x1",
                             "1e3",        "+-1",    "--1",   "++1",     "+",        "-",       "1.2.3+",
                             "\t1.2.3b\n", "\u0661", "1,2",   "1.2.3.",  "...",      "1 .2 .3", "9223372036854775808"})
        expectRefused(text);
    expectRefused(std::string_view("1.2\0", 4));
}

TEST(SemanticVersionTest, OrderGoesByNumbersFromTheLeft) {
    const auto version = &SemanticVersion::parse;
    EXPECT_GT(version("1.10.0"), version("1.9.0"));
    EXPECT_GT(version("2"), version("1.99.99"));
    EXPECT_GT(version("1.0.1"), version("1.0"));
    EXPECT_EQ(version("1.4"), version("v1.4.0"));
    const auto negative = version("-1.0.0");
    EXPECT_EQ(negative.major, -1);
    EXPECT_LT(negative, version("0.0.0"));
}

TEST(SemanticVersionTest, EqualVersionsHaveOneHash) {
    const std::unordered_set<SemanticVersion> set{{1, 2, 3}, {1, 2, 3}, {3, 2, 1}};
    EXPECT_EQ(set.size(), 2U);
    EXPECT_TRUE(set.contains(SemanticVersion::parse("v1.2.3")));
}

}  // namespace
