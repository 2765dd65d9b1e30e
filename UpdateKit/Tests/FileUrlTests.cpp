#include "UpdateKit/FileUrl.h"

#include <gtest/gtest.h>

namespace {

TEST(FileUrlTest, APathGoesIntoAUrlAndComesBack) {
    for (const char* path : {"/tmp/manifest.json", "/a b/ü%20#?.json", "/a\nb", "/x:y/[z]", "/"}) {
        const Url url = FileUrl::of(path);
        EXPECT_EQ(FileUrl::path(url), path) << url.text();
        EXPECT_EQ(Url::parse(url.text()), url) << url.text();
    }
    EXPECT_EQ(FileUrl::of("/a b").text(), "file:///a%20b");
}

TEST(FileUrlTest, OnlyFilesOfThisMachineHaveAPath) {
    EXPECT_EQ(FileUrl::path(*Url::parse("file:/etc/x")), "/etc/x");
    EXPECT_EQ(FileUrl::path(*Url::parse("FILE://LocalHost/etc/x")), "/etc/x");
    EXPECT_EQ(FileUrl::path(*Url::parse("file://elsewhere/etc/x")), std::nullopt);
    EXPECT_EQ(FileUrl::path(*Url::parse("file:relative")), std::nullopt);
    EXPECT_EQ(FileUrl::path(*Url::parse("file:///a%00b")), std::nullopt);
    EXPECT_EQ(FileUrl::path(*Url::parse("https://host/etc/x")), std::nullopt);
}

TEST(FileUrlTest, PercentSignsThatStandForNothingStay) {
    EXPECT_EQ(FileUrl::percentDecoded("a%41%4g%4"), "aA%4g%4");
    EXPECT_EQ(FileUrl::percentDecoded("%"), "%");
    EXPECT_EQ(FileUrl::percentDecoded("%e2%82%AC"), "€");
}

}  // namespace
