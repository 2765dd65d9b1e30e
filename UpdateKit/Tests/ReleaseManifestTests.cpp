#include "UpdateKit/ReleaseManifest.h"

#include "UpdateKit/UpdateKitError.h"

#include <gtest/gtest.h>

namespace {

using Code = UpdateKitError::Code;

ReleaseManifest decoded(const std::string& json) { return ReleaseManifest::decode(bytesOf(json)); }

UpdateKitError refusal(const std::string& json) {
    try {
        (void)decoded(json);
    } catch (const UpdateKitError& error) {
        return error;
    }
    ADD_FAILURE() << "taken: " << json.substr(0, 200);
    return UpdateKitError(Code::noPreparedUpdate);
}

Url resolvedUrl(const char* manifestUrl, const std::string& url) {
    return decoded(R"({"version":"1","url":")" + url + R"("})").resolved(*Url::parse(manifestUrl)).url;
}

TEST(ReleaseManifestTest, AManifestTellsVersionAddressAndSystem) {
    const auto manifest = decoded(
        R"({"version":"v1.4.2","url":"Vimble-1.4.2.zip","minimumSystemVersion":"14.0","notes":{"a":[1,null]}})");
    EXPECT_EQ(manifest.version, (SemanticVersion{1, 4, 2}));
    EXPECT_EQ(manifest.url.text(), "Vimble-1.4.2.zip");
    EXPECT_EQ(manifest.minimumSystemVersion, (SemanticVersion{14, 0, 0}));
}

TEST(ReleaseManifestTest, TheSystemVersionMayBeMissingOrNull) {
    EXPECT_FALSE(decoded(R"({"version":"1","url":"x"})").minimumSystemVersion);
    EXPECT_FALSE(decoded(R"({"version":"1","url":"x","minimumSystemVersion":null})").minimumSystemVersion);
}

TEST(ReleaseManifestTest, OfARepeatedKeyTheLastCounts) {
    const auto manifest = decoded(R"({"version":"1","url":"a","version":"2","url":"b"})");
    EXPECT_EQ(manifest.version, (SemanticVersion{2, 0, 0}));
    EXPECT_EQ(manifest.url.text(), "b");
}

TEST(ReleaseManifestTest, AnySchemeIsTaken) {
    for (const char* url : {"https://h/x.zip", "http://h/x.zip", "ftp://h/x.zip", "file:///x.zip", "x-own:1"})
        EXPECT_EQ(decoded(std::string(R"({"version":"1","url":")") + url + "\"}").url.text(), url);
}

TEST(ReleaseManifestTest, AVersionThatIsNoneIsToldAsThat) {
    EXPECT_STREQ(refusal(R"({"version":"abc","url":"x"})").what(), "Unable to parse version: abc");
    EXPECT_STREQ(refusal(R"({"version":"","url":"x"})").what(), "Unable to parse version: ");
    // The version is read before the address and before the minimum version of the system.
    EXPECT_STREQ(refusal(R"({"version":"abc"})").what(), "Unable to parse version: abc");
    EXPECT_STREQ(refusal(R"({"version":"abc","url":"x","minimumSystemVersion":"abc"})").what(),
                 "Unable to parse version: abc");
}

TEST(ReleaseManifestTest, ASystemVersionThatIsNoneMakesTheManifestInvalid) {
    EXPECT_STREQ(refusal(R"({"version":"1","url":"x","minimumSystemVersion":"abc"})").what(),
                 "Invalid release manifest: Unable to parse minimumSystemVersion: abc");
    EXPECT_STREQ(refusal(R"({"version":"1","url":"x","minimumSystemVersion":""})").what(),
                 "Invalid release manifest: Unable to parse minimumSystemVersion: ");
}

TEST(ReleaseManifestTest, WhatIsNoManifestIsRefusedWithAReason) {
    for (const std::string& json :
         {std::string(),
          std::string("<html>404</html>"),
          std::string("[]"),
          std::string("\"1.0\""),
          std::string("null"),
          std::string("{}"),
          std::string(R"({"url":"x"})"),
          std::string(R"({"version":"1"})"),
          std::string(R"({"version":1,"url":"x"})"),
          std::string(R"({"version":null,"url":"x"})"),
          std::string(R"({"version":["1"],"url":"x"})"),
          std::string(R"({"version":"1","url":7})"),
          std::string(R"({"version":"1","url":null})"),
          std::string(R"({"version":"1","url":{"a":1}})"),
          std::string(R"({"version":"1","url":""})"),
          std::string(R"({"version":"1","url":"a b"})"),
          std::string(R"({"version":"1","url":"http://h:99999/x"})"),
          std::string(R"({"version":"1","url":"x","minimumSystemVersion":12})"),
          std::string(R"({"version":"1","url":"x")"),
          std::string(R"({"version":"1","url":"x"}x)"),
          std::string("{\"version\":\"1\",\"url\":\"\xff\"}"),
          std::string(R"({"version":"1","url":"\u0000"})"),
          R"({"version":"1","url":"x","deep":)" + std::string(2000, '[') + std::string(2000, ']') + "}"}) {
        const auto error = refusal(json);
        EXPECT_EQ(error.code(), Code::invalidManifest) << json.substr(0, 100);
        EXPECT_FALSE(error.payload().empty()) << json.substr(0, 100);
    }
}

TEST(ReleaseManifestTest, EveryCutOfAManifestIsRefused) {
    const std::string json = R"({"version":"1.4.2","url":"x.zip","minimumSystemVersion":"12"})";
    for (std::size_t length = 0; length < json.size(); ++length)
        EXPECT_EQ(refusal(json.substr(0, length)).code(), Code::invalidManifest) << length;
}

TEST(ReleaseManifestTest, ADocumentOfMoreThan64KiBIsRefused) {
    const std::string head = R"({"version":"1","url":"x","pad":")";
    const std::string full = head + std::string(ReleaseManifest::maxSize - head.size() - 2, ' ') + "\"}";
    EXPECT_EQ(decoded(full).version, (SemanticVersion{1, 0, 0}));
    EXPECT_EQ(refusal(full + " ").code(), Code::invalidManifest);
}

TEST(ReleaseManifestTest, ARelativeAddressIsMeantFromTheManifestsFolder) {
    EXPECT_EQ(resolvedUrl("https://h/releases/latest.json", "Vimble-1.4.2.zip").text(),
              "https://h/releases/Vimble-1.4.2.zip");
    EXPECT_EQ(resolvedUrl("https://h/releases/latest.json?x=1", "../a.zip").text(), "https://h/a.zip");
    EXPECT_EQ(resolvedUrl("file:///srv/out/latest.json", "a.zip").text(), "file:///srv/out/a.zip");
    EXPECT_EQ(resolvedUrl("https://h", "a.zip").text(), "https://h/a.zip");
    EXPECT_EQ(resolvedUrl("https://h/r/l.json", "//other/a.zip").text(), "https://other/a.zip");
}

TEST(ReleaseManifestTest, AnAbsoluteAddressStaysAsItIs) {
    EXPECT_EQ(resolvedUrl("https://h/releases/latest.json", "http://other/a/../b.zip").text(),
              "http://other/a/../b.zip");
}

TEST(ReleaseManifestTest, WhereNoAddressCanBeBuiltItStaysAsItIs) {
    EXPECT_EQ(resolvedUrl("releases/latest.json", "a.zip").text(), "a.zip");
}

TEST(ReleaseManifestTest, ResolvingKeepsTheVersions) {
    const auto manifest = decoded(R"({"version":"1.4","url":"x","minimumSystemVersion":"12"})");
    auto expected = manifest;
    expected.url = *Url::parse("https://h/x");
    EXPECT_EQ(manifest.resolved(*Url::parse("https://h/l.json")), expected);
}

TEST(ReleaseManifestTest, ASystemIsSupportedFromTheMinimumOn) {
    ReleaseManifest manifest;
    EXPECT_TRUE(manifest.supportsSystem({-5, 0, 0}));
    manifest.minimumSystemVersion = SemanticVersion{12, 1, 0};
    EXPECT_TRUE(manifest.supportsSystem({12, 1, 0}));
    EXPECT_TRUE(manifest.supportsSystem({24, 4, 0}));
    EXPECT_FALSE(manifest.supportsSystem({12, 0, 9}));
}

}  // namespace
