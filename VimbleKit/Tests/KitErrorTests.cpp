#include "VimbleKit/KitError.h"
#include "VimbleKit/SocketError.h"

#include <gtest/gtest.h>

namespace {

using Code = KitError::Code;

TEST(KitErrorTest, EveryCaseHasItsNameAndText) {
    const struct {
        Code code;
        const char* name;
        const char* alone;
        const char* explained;
    } rows[] = {
        {Code::notLoggedIn, "notLoggedIn", "Not logged in", "Not logged in"},
        {Code::alreadyConnecting, "alreadyConnecting", "Connecting already underway", "Connecting already underway"},
        {Code::alreadyRegistering, "alreadyRegistering", "Registration already underway",
         "Registration already underway"},
        {Code::alreadyConnected, "alreadyConnected", "Already connected to the Service",
         "Already connected to the Service"},
        {Code::notConnected, "notConnected", "Account not connected", "Account not connected"},
        {Code::clientDeprecated, "clientDeprecated", "Client deprecated, please upgrade",
         "Client deprecated, please upgrade"},
        {Code::badRequest, "badRequest", "Bad Request: ", "Bad Request: why"},
        {Code::badParameter, "badParameter", "Bad Parameter: ", "Bad Parameter: why"},
        {Code::badBase, "badBase", "Bad Base: ", "Bad Base: why"},
        {Code::notFound, "notFound", "Not Found: ", "Not Found: why"},
        {Code::network, "network", "Network Error: ", "Network Error: why"},
        {Code::service, "service", "Server Error: ", "Server Error: why"},
        {Code::unknown, "unknown", "Unknown Error: ", "Unknown Error: why"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(KitError::name(row.code), row.name);
        EXPECT_EQ(KitError::code(row.name), row.code);
        EXPECT_EQ(KitError(row.code).localizedDescription(), row.alone);
        EXPECT_EQ(KitError(row.code, "why").localizedDescription(), row.explained);
        EXPECT_STREQ(KitError(row.code, "why").what(), row.explained);
    }
}

TEST(KitErrorTest, ANameThatIsNotListedGivesNoCode) {
    EXPECT_EQ(KitError::code("network"), Code::network);
    EXPECT_FALSE(KitError::code("Network"));
    EXPECT_FALSE(KitError::code(""));
}

TEST(KitErrorTest, EqualityLooksAtBothFields) {
    EXPECT_EQ(KitError(Code::notFound, "a"), KitError(Code::notFound, "a"));
    EXPECT_FALSE(KitError(Code::notFound, "a") == KitError(Code::notFound));
    EXPECT_FALSE(KitError(Code::notFound, "a") == KitError(Code::network, "a"));
    EXPECT_FALSE(KitError(Code::notConnected) == KitError(Code::notConnected, "ignored in the text"));
}

TEST(SocketErrorTest, EveryCaseHasItsText) {
    EXPECT_EQ(SocketError::networkFailure({}).localizedDescription(), "Network connnection failed");
    EXPECT_EQ(SocketError::networkFailure(TransportError{"reset"}).localizedDescription(),
              "Network connnection failed (reset)");
    EXPECT_EQ(SocketError::authorizationFailure("no").localizedDescription(), "Authorization failed (no)");
    EXPECT_EQ(SocketError::authorizationFailure("no").explanation, "no");
    EXPECT_EQ(SocketError::notConnected().localizedDescription(), "Not connected to the server");
    EXPECT_EQ(SocketError::badArgument().localizedDescription(), "Bad Argument");
    EXPECT_STREQ(SocketError::badArgument().what(), "Bad Argument");
    EXPECT_EQ(SocketError::networkFailure(TransportError{"reset"}).underlying->text, "reset");
}

}  // namespace
