#include "PlatformCamera/CameraOffer.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

CameraOffer best(const std::vector<CameraOffer>& offers) {
    const auto place = bestOffer(offers);
    return place ? offers[*place] : CameraOffer();
}

TEST(CameraOfferTest, NearestToVgaAndSmoothIsBest) {
    const CameraOffer vga{{640, 480}, 30};
    EXPECT_EQ(best({{{320, 240}, 30}, {{1920, 1080}, 30}, vga, {{640, 480}, 5}}), vga);
    EXPECT_EQ(best({vga, {{640, 480}, 60}}), vga);
}

TEST(CameraOfferTest, ALargerPictureIsBetterThanOneAsMuchSmaller) {
    EXPECT_EQ(best({{{320, 240}, 30}, {{1280, 960}, 30}}).size, QSize(1280, 960));
}

TEST(CameraOfferTest, APlainPictureIsBetterThanAPackedOne) {
    EXPECT_FALSE(best({{{640, 480}, 30, true}, {{640, 480}, 30, false}}).isPacked);
    // A jerky plain picture is not better.
    EXPECT_TRUE(best({{{640, 480}, 30, true}, {{640, 480}, 5, false}}).isPacked);
}

TEST(CameraOfferTest, WhatCannotBeReadIsNoOffer) {
    EXPECT_EQ(bestOffer({}), std::nullopt);
    const std::vector<CameraOffer> none{{{640, 480}, 30, false, false}, {{0, 480}, 30}};
    EXPECT_EQ(bestOffer(none), std::nullopt);
    EXPECT_EQ(best({{{640, 480}, 30, false, false}, {{160, 120}, 5}}).size, QSize(160, 120));
}

}  // namespace
