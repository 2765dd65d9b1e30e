#include "VimbleKit/ServerText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

TEST(ServerTextTest, WhatNamesAHostIsTheEndpointThatTheEngineReads) {
    for (const char* text : {"localhost", "chat.example.org", "http://localhost:8080", "https://chat.example.org:8443"})
        EXPECT_EQ(serverFrom(text), *Endpoint::parse(text)) << text;
}

TEST(ServerTextTest, AWordWithoutAPointIsRefusedWithAHint) {
    EXPECT_THAT(
        [] { (void)serverFrom("server"); },
        ThrowsMessage<ServerTextError>("\"server\" is no server; \"localhost\", a host name or a URL would be one"));
}

TEST(ServerTextTest, AHostAndAPortAloneAreRefusedWithTheUrlThatIsMeant) {
    EXPECT_THAT([] { (void)serverFrom("localhost:8080"); },
                ThrowsMessage<ServerTextError>(HasSubstr("names no host; with a port it takes a whole URL")));
}

}  // namespace
