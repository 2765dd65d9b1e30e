#include "StateKit/Device.h"

#include "TestSupport/FakeHost.h"
#include <gtest/gtest.h>

namespace {

TEST(DeviceTest, TheUserAgentTellsApplicationVersionPlaceAndMachine) {
    EXPECT_EQ(Device::userAgent(FakeHost()), "Vimble/1.2_34 (Europe/Zurich; de_CH) x86_64 macOS/Version 12");
}

TEST(DeviceTest, ANameForTheUserAgentGoesBeforeTheBundlesName) {
    FakeHost host;
    host.bundle["LDUserAgentApp"] = "Agent";
    EXPECT_EQ(Device::userAgent(host).substr(0, 6), "Agent/");
    host.bundle.erase("CFBundleName");
    EXPECT_EQ(Device::userAgent(host).substr(0, 6), "Agent/");
    host.bundle["LDUserAgentApp"] = "";  // present, so CFBundleName is not looked at
    EXPECT_EQ(Device::userAgent(host).substr(0, 5), "/1.2_");
}

TEST(DeviceTest, WhatTheHostDoesNotTellHasAFallback) {
    FakeHost host;
    host.bundle.clear();
    host.hardware.reset();
    EXPECT_EQ(Device::userAgent(host), "Unknown/Unknown_Unknown (Europe/Zurich; de_CH) Unknown Mac macOS/Version 12");
}

TEST(DeviceTest, TheUserAgentIsComposedAnewAtEachCall) {
    FakeHost host;
    Device::userAgent(host);
    host.timeZone = "Asia/Tokyo";
    EXPECT_NE(Device::userAgent(host).find("(Asia/Tokyo; "), std::string::npos);
}

TEST(DeviceTest, TheNameIsThatOfTheComputerOrAFallback) {
    FakeHost host;
    EXPECT_EQ(Device::name(host), "Desk");
    host.computer.reset();
    EXPECT_EQ(Device::name(host), "Unnamed Mac");
}

}  // namespace
