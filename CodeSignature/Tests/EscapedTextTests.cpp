#include "CodeSignature/EscapedText.h"

#include <gtest/gtest.h>

TEST(EscapedTextTest, PlainTextStaysAsItIs) {
    for (const char* text : {"", "Vimble.app", "a b", "Ärger 日本 \U0001F600", "a=b (c)"}) {
        EXPECT_EQ(escapedText(text), text);
        EXPECT_TRUE(isPlainText(text));
    }
}

TEST(EscapedTextTest, WhatCouldMakeALineOfItsOwnIsEscaped) {
    EXPECT_EQ(escapedText("a\nAuthority=b"), "a\\x0aAuthority=b");
    EXPECT_EQ(escapedText(std::string_view("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(escapedText("\x1b[31m\x7f\r"), "\\x1b[31m\\x7f\\x0d");
    EXPECT_EQ(escapedText("\u0085\u2028\u202e\u2066\u200f"),
              "\\xc2\\x85\\xe2\\x80\\xa8\\xe2\\x80\\xae\\xe2\\x81\\xa6\\xe2\\x80\\x8f");
    EXPECT_FALSE(isPlainText("a\u202eb"));
}

TEST(EscapedTextTest, BytesThatAreNoUtf8AreEscapedOneByOne) {
    EXPECT_EQ(escapedText("\xff\xc3"), "\\xff\\xc3");
    EXPECT_EQ(escapedText("\xc0\x80"), "\\xc0\\x80") << "longer than need be";
    EXPECT_EQ(escapedText("\xe0\x80\x80"), "\\xe0\\x80\\x80");
    EXPECT_EQ(escapedText("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "half of a pair";
    EXPECT_EQ(escapedText("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last one";
    EXPECT_EQ(escapedText("\xe2\x82"), "\\xe2\\x82") << "cut short";
    EXPECT_EQ(escapedText("\xc3"
                          "a"),
              "\\xc3"
              "a");
}

TEST(EscapedTextTest, TwoTextsAreEscapedAlikeOnlyIfTheyAre) {
    EXPECT_NE(escapedText("\n"), escapedText("\\x0a"));
    EXPECT_TRUE(isPlainText("a\\b"));
}
