#include "TranscriptKit/AuthorColor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr unsigned seed = 2718;

std::vector<std::string> randomKeys(int count) {
    std::mt19937 random(seed);
    std::vector<std::string> keys(static_cast<std::size_t>(count));
    for (std::string& key : keys)
        for (int i = 0; i < 64; ++i) key += "0123456789abcdef"[random() % 16];
    return keys;
}

/// The place on the colour wheel, in degrees.
double hueOf(Rgb color) {
    const double r = color.red, g = color.green, b = color.blue;
    const double most = std::max({r, g, b}), span = most - std::min({r, g, b});
    if (span == 0) return 0;
    const double sixth = most == r ? (g - b) / span : most == g ? 2 + (b - r) / span : 4 + (r - g) / span;
    return std::fmod(sixth * 60 + 360, 360);
}

TEST(AuthorColorTest, ContrastIsThatOfTheGuidelines) {
    EXPECT_NEAR(AuthorColor::contrast({0, 0, 0}, {255, 255, 255}), 21, 1e-9);
    EXPECT_NEAR(AuthorColor::contrast({255, 255, 255}, {0, 0, 0}), 21, 1e-9);
    EXPECT_NEAR(AuthorColor::contrast({9, 9, 9}, {9, 9, 9}), 1, 1e-9);
    // Published values: on white, #777 is the darkest grey below 4.5, and #767676 the lightest above.
    EXPECT_NEAR(AuthorColor::contrast({0x77, 0x77, 0x77}, {255, 255, 255}), 4.48, 0.005);
    EXPECT_NEAR(AuthorColor::contrast({0x76, 0x76, 0x76}, {255, 255, 255}), 4.54, 0.005);
}

TEST(AuthorColorTest, EveryColourIsReadableOnItsBackgrounds) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (const std::string& key : randomKeys(1000)) {
        for (const Rgb light : {Rgb{0xff, 0xff, 0xff}, Rgb{0xf5, 0xf5, 0xf5}})
            ASSERT_GE(AuthorColor::contrast(AuthorColor::of(key, false), light), 4.5) << key;
        for (const Rgb dark : {Rgb{0x00, 0x00, 0x00}, Rgb{0x1e, 0x1e, 0x1e}, Rgb{0x2b, 0x2b, 0x2b}})
            ASSERT_GE(AuthorColor::contrast(AuthorColor::of(key, true), dark), 4.5) << key;
    }
}

TEST(AuthorColorTest, AKeyHasOneColour) {
    for (const std::string& key : randomKeys(20)) {
        EXPECT_EQ(AuthorColor::of(key, false), AuthorColor::of(std::string(key), false));
        EXPECT_FALSE(AuthorColor::of(key, false) == AuthorColor::of(key, true));
    }
    // The same at every start and on every machine.
    EXPECT_EQ(AuthorColor::of(std::string(64, 'a'), false), AuthorColor::of(std::string(64, 'a'), false));
}

TEST(AuthorColorTest, ColoursSpreadOverTheWheel) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (const bool isOnDark : {false, true}) {
        std::array<int, 6> sixths{};
        std::set<std::tuple<int, int, int>> colors;
        for (const std::string& key : randomKeys(1000)) {
            const Rgb color = AuthorColor::of(key, isOnDark);
            ++sixths[static_cast<std::size_t>(hueOf(color) / 60)];
            colors.insert({color.red, color.green, color.blue});
            // Colour, not grey.
            ASSERT_GE(std::max({color.red, color.green, color.blue}) - std::min({color.red, color.green, color.blue}),
                      50);
        }
        for (const int count : sixths) EXPECT_GE(count, 50);
        EXPECT_GE(colors.size(), 150u);
    }
}

TEST(AuthorColorTest, KeysThatDifferInOneCharacterDifferInColour) {
    std::set<std::tuple<int, int, int>> colors;
    for (const char c : std::string_view("0123456789abcdef")) {
        const Rgb color = AuthorColor::of(std::string(63, '0') + c, false);
        colors.insert({color.red, color.green, color.blue});
    }
    EXPECT_GE(colors.size(), 15u);
}

TEST(AuthorColorTest, AnyTextHasAColour) {
    EXPECT_GE(AuthorColor::contrast(AuthorColor::of("", false), {0xf5, 0xf5, 0xf5}), 4.5);
    EXPECT_GE(AuthorColor::contrast(AuthorColor::of("room", true), {0x2b, 0x2b, 0x2b}), 4.5);
}

}  // namespace
