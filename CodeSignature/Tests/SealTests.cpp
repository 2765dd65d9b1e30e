#include "CodeSignature/Seal.h"

#include "CodeSignature/CodeSignatureError.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::string digest(64, 'a');

std::string list(const std::string& lines, const std::string& beginning = "signature none\ndirectory 0755 .\n") {
    return "vimble-seal 1\n" + beginning + lines;
}

bool isRefused(const std::string& text) {
    try {
        static_cast<void>(Seal::parse(bytesOf(text)));
        return false;
    } catch (const CodeSignatureError& error) {
        EXPECT_EQ(error.code, CodeSignatureErrorCode::badSeal);
        return true;
    }
}

SealEntry directory(std::string path) { return {SealEntry::Kind::directory, std::move(path), 0755}; }
SealEntry file(std::string path, std::uint64_t size = 1) {
    return {SealEntry::Kind::file, std::move(path), 0644, size};
}

std::string refusalOf(std::vector<SealEntry> entries) {
    entries.push_back(directory(""));
    try {
        static_cast<void>(Seal::of(std::move(entries), false));
    } catch (const CodeSignatureError& error) {
        EXPECT_EQ(error.code, CodeSignatureErrorCode::unsealable);
        return error.what();
    }
    return "";
}

}  // namespace

TEST(SealTest, AListIsWrittenAsDocumented) {
    SealEntry link{SealEntry::Kind::link, "Contents/x y"};
    link.digest.fill(0xAB);
    SealEntry program{SealEntry::Kind::file, "Contents/program", 0755, 1234};
    program.digest.fill(0x01);
    const Seal seal = Seal::of({link, program, directory(""), directory("Contents")}, true);
    std::string abs, ones;
    for (int i = 0; i < 32; ++i) abs += "ab", ones += "01";
    EXPECT_EQ(textOf(seal.bytes()),
              "vimble-seal 1\nsignature required\ndirectory 0755 .\ndirectory 0755 Contents\nfile 0755 1234 " + ones +
                  " Contents/program\nlink " + abs + " Contents/x y\n");
    EXPECT_EQ(Seal::parse(seal.bytes()), seal);
}

TEST(SealTest, AListComesBackAsItWasWritten) {
    const std::string text = list("directory 0700 a\nfile 0000 0 " + digest + " a/b\nlink " + digest + " c d\n");
    const Seal seal = Seal::parse(bytesOf(text));
    EXPECT_EQ(seal.entries.size(), 4U);
    EXPECT_FALSE(seal.isSigned);
    EXPECT_EQ(textOf(seal.bytes()), text);
}

TEST(SealTest, OnlyOneSpellingOfAListIsRead) {
    ASSERT_FALSE(isRefused(list("file 0644 12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 012 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 +12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 -1 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644  " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 99999999999999999999999 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 644 12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 1644 12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0648 12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 12 " + std::string(64, 'A') + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 12 " + std::string(63, 'a') + " a\n")));
    EXPECT_TRUE(isRefused(list("file  0644 12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("File 0644 12 " + digest + " a\n")));
    EXPECT_TRUE(isRefused(list("file 0644 12 " + digest + " \n")));
    EXPECT_TRUE(isRefused(list("file 0644 12 " + digest + " a")));
    EXPECT_TRUE(isRefused(list("file 0644 12 " + digest + " a\r\n")));
    EXPECT_TRUE(isRefused(list("\n")));
    EXPECT_TRUE(isRefused(list("file 0644 4294967297 " + digest + " a\n"))) << "more than 4 GiB";
}

TEST(SealTest, AListCutShortAnywhereInALineIsRefused) {
    const std::string text = list("directory 0700 a\nfile 0600 5 " + digest + " a/b\n");
    for (std::size_t length = 0; length < text.size(); ++length) {
        const bool isWholeLines = length > 31 && text[length - 1] == '\n';
        EXPECT_EQ(isRefused(text.substr(0, length)), !isWholeLines) << length;
    }
}

TEST(SealTest, AListWithoutItsHeadingIsRefused) {
    EXPECT_TRUE(isRefused(""));
    EXPECT_TRUE(isRefused("vimble-seal 2\nsignature none\ndirectory 0755 .\n"));
    EXPECT_TRUE(isRefused("vimble-seal 1\ndirectory 0755 .\n"));
    EXPECT_TRUE(isRefused("vimble-seal 1\nsignature perhaps\ndirectory 0755 .\n"));
    EXPECT_TRUE(isRefused("vimble-seal 1\nsignature none\n"));
    EXPECT_TRUE(isRefused(list("", "signature none\nfile 0644 0 " + digest + " .\n")));
    EXPECT_TRUE(isRefused(list("", "signature none\ndirectory 0755 a\n")));
}

TEST(SealTest, PathsThatAreNoneInsideTheBundleAreRefused) {
    const std::string before = "file 0644 1 " + digest + ' ';
    for (const std::string path : {"/a", "a/", "..", "a/..", "./a", "a//b", ".", "Contents/_CodeSignature", "a\tb",
                                   "a\x7f", "a\xff", "\xe2\x80\xae", "missing/b"})
        EXPECT_TRUE(isRefused(list(before + path + "\n"))) << path;
    EXPECT_TRUE(isRefused(list(before + std::string(1025, 'a') + "\n")));
    EXPECT_FALSE(isRefused(list(before + std::string(1024, 'a') + "\n")));
    EXPECT_TRUE(isRefused(list("directory 0755 Contents\ndirectory 0755 Contents/_codesignature\n")));
    EXPECT_TRUE(isRefused(list(before + "a\n" + before + "a/b\n"))) << "below a file";
}

TEST(SealTest, AListOutOfOrderOrWithANameTwiceIsRefused) {
    const std::string before = "file 0644 1 " + digest + ' ';
    EXPECT_FALSE(isRefused(list(before + "a\n" + before + "b\n")));
    EXPECT_TRUE(isRefused(list(before + "b\n" + before + "a\n")));
    EXPECT_TRUE(isRefused(list(before + "a\n" + before + "a\n")));
    EXPECT_TRUE(isRefused(list(before + "A\n" + before + "a\n"))) << "only case tells them apart";
    EXPECT_TRUE(isRefused(list("directory 0755 .\n")));
}

TEST(SealTest, MoreThanAHundredThousandEntriesAreRefused) {
    const auto numbered = [](int count) {
        std::string lines;
        for (int i = 0; i < count; ++i) lines += "directory 0755 " + std::to_string(1'000'000 + i) + '\n';
        return list(lines);
    };
    EXPECT_FALSE(isRefused(numbered(99'999)));
    EXPECT_TRUE(isRefused(numbered(100'000)));
}

TEST(SealTest, WhatCanNotBeSealedIsNamed) {
    EXPECT_EQ(refusalOf({file("a")}), "");
    EXPECT_EQ(refusalOf({file("a\nb")}), "a\\x0ab: its name holds control characters or is not UTF-8");
    EXPECT_EQ(refusalOf({file("readme"), file("README")}), "readme: another name differs from it only in case");
    EXPECT_EQ(refusalOf({file("a", std::uint64_t{3} << 30), file("b", std::uint64_t{3} << 30)}),
              "b: with it the bundle is larger than 4 GiB");
}
