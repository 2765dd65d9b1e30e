#include "StateKit/Printed.h"
#include "VimbleKit/Endpoint.h"

#include <gtest/gtest.h>

#include <unordered_set>

namespace {

std::string parsed(std::string_view text) {
    const auto endpoint = Endpoint::parse(text);
    return endpoint ? endpoint->url() : "nothing";
}

std::string shown(std::string_view text) {
    const auto endpoint = Endpoint::parse(text);
    return endpoint ? endpoint->displayString() : "nothing";
}

TEST(EndpointTest, EmptyTextAndBlanksGiveNothing) {
    EXPECT_EQ(parsed(""), "nothing");
    EXPECT_EQ(parsed("  \n\t "), "nothing");
}

TEST(EndpointTest, AHostNameGivesItsHttpsUrlAndShowsBare) {
    EXPECT_EQ(parsed("chat.example.org"), "https://chat.example.org");
    EXPECT_EQ(parsed("  chat.example.org\n"), "https://chat.example.org");
    EXPECT_EQ(shown(" chat.example.org "), "chat.example.org");
    EXPECT_EQ(parsed("192.168.1.1"), "https://192.168.1.1");
}

TEST(EndpointTest, LocalhostIsTheDevelopmentServer) {
    EXPECT_EQ(parsed("localhost"), "http://localhost:8080");
    EXPECT_EQ(shown("localhost"), "localhost");
    EXPECT_EQ(Endpoint("http://localhost:8080").displayString(), "localhost");
    EXPECT_EQ(Endpoint("http://localhost:8080/x").displayString(), "http://localhost:8080/x");
    EXPECT_EQ(Endpoint("http://localhost:8080/").displayString(), "http://localhost:8080/");
    EXPECT_EQ(Endpoint("http://localhost:8080?q").displayString(), "http://localhost:8080?q");
    EXPECT_EQ(Endpoint("http://localhost:8081").displayString(), "http://localhost:8081");
}

TEST(EndpointTest, AHostNameWithAPortReadsAsAUrlOfThatScheme) {
    EXPECT_EQ(parsed("localhost:8080"), "localhost:8080");
    EXPECT_EQ(parsed("chat.example.org:443"), "chat.example.org:443");
    EXPECT_EQ(shown("chat.example.org:443"), "chat.example.org:443");
}

TEST(EndpointTest, ABareWordAndANameWithABlankGiveNothing) {
    EXPECT_EQ(parsed("chat"), "nothing");
    EXPECT_EQ(parsed(".chat."), "nothing");
    EXPECT_EQ(parsed("chat/path"), "nothing");
    EXPECT_EQ(parsed("chat example.org"), "nothing");
    EXPECT_EQ(parsed("chat.example.org/a b"), "nothing");
    EXPECT_EQ(parsed("https://chat.example.org/a b"), "nothing");
    EXPECT_EQ(parsed("Localhost"), "nothing");
}

TEST(EndpointTest, AHostNameWithAPathKeepsIt) {
    EXPECT_EQ(parsed("chat.example.org/a/b"), "https://chat.example.org/a/b");
    EXPECT_EQ(shown("chat.example.org/a/b"), "chat.example.org/a/b");
    EXPECT_EQ(parsed("chat.example.org/"), "https://chat.example.org/");
    EXPECT_EQ(shown("chat.example.org/"), "chat.example.org/");
    EXPECT_EQ(parsed("chat.example.org//x"), "https://chat.example.org//x");
    EXPECT_EQ(parsed("chat.example.org/a%20b"), "https://chat.example.org/a%20b");
    EXPECT_EQ(shown("chat.example.org/a%20b"), "chat.example.org/a%20b");
}

TEST(EndpointTest, WhatCanStandInNoHostOrPathGivesNothing) {
    EXPECT_EQ(parsed("chat.example.org/%zz"), "nothing");
    EXPECT_EQ(parsed("chat.example.org/ä"), "nothing");
    EXPECT_EQ(parsed("chat.example.org/a?q"), "nothing");
    EXPECT_EQ(parsed("chat.example.org/a#f"), "nothing");
    EXPECT_EQ(parsed("127.0.0.1:8080"), "nothing");
    EXPECT_EQ(parsed("me@chat.example.org"), "nothing");
    EXPECT_EQ(parsed("/chat.example.org"), "nothing");
    EXPECT_EQ(parsed("chät.example.org"), "nothing");
    EXPECT_EQ(parsed("https://chat.example.org:99999/x.y"), "nothing");
    EXPECT_EQ(parsed("chat.\xff"), "nothing");
}

TEST(EndpointTest, AVimbleUrlNamesTheHttpsServer) {
    EXPECT_EQ(parsed("vimble://chat.example.org"), "https://chat.example.org");
    EXPECT_EQ(Endpoint::parse("vimble://chat.example.org"), Endpoint::parse("chat.example.org"));
    EXPECT_EQ(parsed("vimble:chat.example.org"), parsed("https:chat.example.org"));
    EXPECT_EQ(Endpoint("vimble://chat.example.org/p?q#f").url(), "https://chat.example.org/p?q#f");
}

TEST(EndpointTest, AFullAddressGoesThroughAndShowsInFull) {
    EXPECT_EQ(parsed("https://chat.example.org:8443"), "https://chat.example.org:8443");
    EXPECT_EQ(shown("https://chat.example.org:8443"), "https://chat.example.org:8443");
    EXPECT_EQ(shown("http://chat.example.org"), "http://chat.example.org");
    EXPECT_EQ(shown("https://chat.example.org?q"), "https://chat.example.org?q");
    EXPECT_EQ(shown("https://chat.example.org#f"), "https://chat.example.org#f");
    EXPECT_EQ(shown("https://chat.example.org/p"), "chat.example.org/p");
    EXPECT_EQ(parsed("ftp://chat.example.org"), "ftp://chat.example.org");
}

TEST(EndpointTest, WhatShowsInShortFormParsesBackToTheSameServer) {
    for (const char* text : {"localhost", "chat.example.org", "chat.example.org/", "chat.example.org/a/b"})
        EXPECT_EQ(Endpoint::parse(shown(text)), Endpoint::parse(text)) << text;
}

TEST(EndpointTest, WhatIsNoUrlIsTakenAsItStands) {
    EXPECT_EQ(Endpoint("a b").url(), "a b");
    EXPECT_EQ(Endpoint("a b").displayString(), "a b");
    EXPECT_EQ(Endpoint("").url(), "");
}

TEST(EndpointTest, TheDefaultIsAnHttpsUrlOfAHostAlone) {
    const Endpoint& endpoint = Endpoint::defaultEndpoint();
    EXPECT_TRUE(endpoint.url().starts_with("https://"));
    EXPECT_EQ("https://" + endpoint.displayString(), endpoint.url());
    EXPECT_EQ(endpoint.displayString().find_first_of("/:?#"), std::string::npos);
    EXPECT_EQ(&endpoint, &Endpoint::defaultEndpoint());
}

TEST(EndpointTest, EqualityAndHashGoByTheUrl) {
    const std::unordered_set<Endpoint> set{Endpoint("https://a.b"), Endpoint("vimble://a.b"), Endpoint("https://a.b/")};
    EXPECT_EQ(set.size(), 2u);
    EXPECT_EQ(printed(Endpoint("https://a.b")), "Endpoint(url: https://a.b)");
}

}  // namespace
