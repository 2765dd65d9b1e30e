#include "Text/Url.h"

#include <gtest/gtest.h>

namespace {

TEST(UrlTest, AUrlFallsIntoItsComponents) {
    const auto url = Url::parse("https://me@host.example:8443/a/b%20c?x=1#end");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->scheme, "https");
    EXPECT_EQ(url->userInfo, "me");
    EXPECT_EQ(url->host, "host.example");
    EXPECT_EQ(url->port, "8443");
    EXPECT_EQ(url->path, "/a/b%20c");
    EXPECT_EQ(url->query, "x=1");
    EXPECT_EQ(url->fragment, "end");
}

TEST(UrlTest, WhatIsAbsentIsNotEmpty) {
    const auto bare = Url::parse("https://h");
    ASSERT_TRUE(bare);
    EXPECT_FALSE(bare->port || bare->query || bare->fragment || bare->userInfo);
    EXPECT_EQ(bare->path, "");
    const auto empty = Url::parse("https://@h:?#");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->userInfo, "");
    EXPECT_EQ(empty->port, "");
    EXPECT_EQ(empty->query, "");
    EXPECT_EQ(empty->fragment, "");
}

TEST(UrlTest, TheTextComesBackAsItWas) {
    for (const char* text : {"https://me@host.example:8443/a/b%20c?x=1#end",
                             "https://h",
                             "https://h/",
                             "https://h//x",
                             "https://h/a//b/",
                             "http://[::1]:8080/x",
                             "http://127.0.0.1",
                             "localhost:8080",
                             "mailto:a@b",
                             "host.example",
                             "host.example/path",
                             "/a/b",
                             "a/b/",
                             "",
                             "?q",
                             "#f",
                             "https://h:?#",
                             "file:///x",
                             "scheme:",
                             "scheme:/",
                             "scheme:/a/b",
                             "//h/x"}) {
        const auto url = Url::parse(text);
        ASSERT_TRUE(url) << text;
        EXPECT_EQ(url->text(), text);
    }
}

TEST(UrlTest, WhatTheStandardDoesNotAllowIsNoUrl) {
    for (const char* text : {"https://a b", "https://h/%zz", "https://höst", "http://h:x", "http://[::1", "a\\b",
                             "1.2.3.4:80", "http://h:65536", "http://h:99999999999999999999", "\xff"})
        EXPECT_FALSE(Url::parse(text)) << text;
    EXPECT_FALSE(Url::parse(std::string_view("a\0b", 3)));
    EXPECT_TRUE(Url::parse("http://h:65535"));
}

TEST(UrlTest, AComponentIsAppendedToThePathAlone) {
    EXPECT_EQ(Url::parse("http://localhost:8080")->appending("relay").text(), "http://localhost:8080/relay");
    EXPECT_EQ(Url::parse("https://h/")->appending("relay").text(), "https://h/relay");
    EXPECT_EQ(Url::parse("https://h/a")->appending("relay").text(), "https://h/a/relay");
    EXPECT_EQ(Url::parse("https://h/a/?x=1#f")->appending("relay").text(), "https://h/a/relay?x=1#f");
}

TEST(UrlTest, TheFolderOfAUrlEndsInASlash) {
    const auto folder = [](const char* text) { return Url::parse(text)->deletingLastPathComponent().text(); };
    EXPECT_EQ(folder("https://h/releases/latest.json"), "https://h/releases/");
    EXPECT_EQ(folder("https://h/releases/latest.json?x=1#f"), "https://h/releases/");
    EXPECT_EQ(folder("https://h/releases/"), "https://h/");
    EXPECT_EQ(folder("https://h/latest.json"), "https://h/");
    EXPECT_EQ(folder("https://h/"), "https://h/");
    EXPECT_EQ(folder("https://h"), "https://h/");
    EXPECT_EQ(folder("file:///srv/latest.json"), "file:///srv/");
    EXPECT_EQ(folder("file:///"), "file:///");
    EXPECT_EQ(folder("latest.json"), "");
    EXPECT_EQ(folder("a/latest.json"), "a/");
    EXPECT_EQ(folder("/latest.json"), "/");
}

TEST(UrlTest, AReferenceIsResolvedAgainstItsDocument) {
    const auto resolved = [](const char* base, const char* reference) -> std::string {
        const auto url = Url::parse(base)->resolving(*Url::parse(reference));
        return url ? url->text() : "none";
    };
    EXPECT_EQ(resolved("https://h/releases/", "Vimble-1.4.2.zip"), "https://h/releases/Vimble-1.4.2.zip");
    EXPECT_EQ(resolved("https://h/releases/", "../x.zip"), "https://h/x.zip");
    EXPECT_EQ(resolved("https://h/releases/", "../../../x.zip"), "https://h/x.zip");
    EXPECT_EQ(resolved("https://h/releases/", "/x.zip"), "https://h/x.zip");
    EXPECT_EQ(resolved("https://h/releases/", "//other/x.zip"), "https://other/x.zip");
    EXPECT_EQ(resolved("https://h/releases/", "http://other/x.zip"), "http://other/x.zip");
    EXPECT_EQ(resolved("https://h:8443/releases/", "a%20b.zip?q=1"), "https://h:8443/releases/a%20b.zip?q=1");
    EXPECT_EQ(resolved("file:///srv/releases/", "x.zip"), "file:///srv/releases/x.zip");
    EXPECT_EQ(resolved("releases/", "x.zip"), "none");
}

}  // namespace
