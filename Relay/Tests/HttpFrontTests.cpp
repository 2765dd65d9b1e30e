#include "RelayShell/HttpFront.h"

#include "Base/Bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Kind = HttpVerdict::Kind;

std::optional<HttpVerdict> judge(const std::string& text) { return HttpFront::judge(bytesOf(text), 2000); }

/// The example of RFC 6455, section 1.3.
std::string handshake(const std::string& target = "/relay", const std::string& extra = {}) {
    return "GET " + target +
           " HTTP/1.1\r\nHost: server.example.com\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nOrigin: http://example.com\r\n" +
           extra + "Sec-WebSocket-Version: 13\r\n\r\n";
}

TEST(HttpFrontTest, TheHandshakeOfTheStandardIsAccepted) {
    const auto verdict = judge(handshake() + "behind it");
    ASSERT_TRUE(verdict);
    EXPECT_EQ(verdict->kind, Kind::upgrade);
    EXPECT_THAT(verdict->response, StartsWith("HTTP/1.1 101 Switching Protocols\r\n"));
    EXPECT_THAT(verdict->response, HasSubstr("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"));
    EXPECT_EQ(verdict->used, handshake().size());
}

TEST(HttpFrontTest, AnIncompleteRequestIsWaitedFor) {
    const std::string whole = handshake();
    for (std::size_t size = 0; size < whole.size(); ++size) EXPECT_FALSE(judge(whole.substr(0, size))) << size;
    EXPECT_TRUE(judge(whole));
}

TEST(HttpFrontTest, APathThatEndsInRelayIsTheWebSocket) {
    for (const char* path : {"/relay", "/a/b/relay", "/relay?x=/y"})
        EXPECT_EQ(judge(handshake(path))->kind, Kind::upgrade) << path;
    for (const char* path : {"/", "/relay/", "/norelay", "/relayed", "/?/relay"})
        EXPECT_THAT(judge(handshake(path))->response, StartsWith("HTTP/1.1 404 ")) << path;
}

TEST(HttpFrontTest, OtherPagesAreTold) {
    EXPECT_EQ(judge("GET /healthz HTTP/1.1\r\n\r\n")->kind, Kind::healthz);
    EXPECT_EQ(judge("GET /metrics HTTP/1.0\r\n\r\n")->kind, Kind::metrics);
    EXPECT_THAT(judge("DELETE /healthz HTTP/1.1\r\n\r\n")->response, StartsWith("HTTP/1.1 405 "));
    EXPECT_THAT(judge("POST /relay HTTP/1.1\r\nContent-Length: 9\r\n\r\n")->response, HasSubstr("Allow: GET\r\n"));
}

TEST(HttpFrontTest, WhatIsNoHttpIsABadRequest) {
    for (const char* text : {"hello\r\n\r\n", "GET\r\n\r\n", "GET / HTTP/9.9\r\n\r\n",
                             "GET / HTTP/1.1\r\nno colon\r\n\r\n", "GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n"}) {
        const auto verdict = judge(text);
        ASSERT_TRUE(verdict) << text;
        EXPECT_THAT(verdict->response, StartsWith("HTTP/1.1 400 ")) << text;
    }
}

TEST(HttpFrontTest, ARequestThatIsTooLongIsRefusedBeforeItEnds) {
    EXPECT_THAT(judge("GET /healthz HTTP/1.1\r\nX: " + std::string(3000, 'x'))->response, StartsWith("HTTP/1.1 431 "));
    EXPECT_THAT(judge("GET /" + std::string(3000, 'x'))->response, StartsWith("HTTP/1.1 431 "));
}

TEST(HttpFrontTest, TheLastForwardedAddressIsTheProxysOwnWord) {
    EXPECT_EQ(judge(handshake())->forwardedFor, "");
    EXPECT_EQ(judge(handshake("/relay", "X-Forwarded-For: 192.0.2.1\r\n"))->forwardedFor, "192.0.2.1");
    EXPECT_EQ(judge(handshake("/relay", "X-Forwarded-For: forged, 192.0.2.1 \r\n"))->forwardedFor, "192.0.2.1");
    EXPECT_EQ(judge(handshake("/relay", "X-Forwarded-For: 192.0.2.1,\r\n"))->forwardedFor, "");
    EXPECT_EQ(judge(handshake("/relay", "X-Forwarded-For: forged\r\nX-Other: x\r\nx-forwarded-for: a, 192.0.2.1\r\n"))
                  ->forwardedFor,
              "192.0.2.1");
}

}  // namespace
