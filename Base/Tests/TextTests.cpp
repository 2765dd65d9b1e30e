#include "Text/Text.h"

#include <gtest/gtest.h>

namespace {

TEST(TextTest, APrefixCountsUserPerceivedCharacters) {
    EXPECT_EQ(Text::prefix("abcdef", 3), "abc");
    EXPECT_EQ(Text::prefix("ab", 3), "ab");
    EXPECT_EQ(Text::prefix("", 3), "");
    EXPECT_EQ(Text::prefix("abc", 0), "");
    EXPECT_EQ(Text::prefix("äöü", 2), "äö");
    EXPECT_EQ(Text::prefix("e\u0301x", 1), "e\u0301");
}

TEST(TextTest, AnEmojiWithItsModifiersIsOneCharacter) {
    const std::string family = "👨‍👩‍👧‍👦";
    const std::string thumb = "👍🏽";
    const std::string flag = "🇨🇭";
    EXPECT_EQ(Text::prefix(family + thumb, 1), family);
    EXPECT_EQ(Text::prefix(thumb + family, 1), thumb);
    EXPECT_EQ(Text::prefix(flag + "🇩🇪", 1), flag);
    EXPECT_EQ(Text::prefix("❤️x", 1), "❤️");
    EXPECT_EQ(Text::prefix(family + thumb + flag, 2), family + thumb);
}

TEST(TextTest, ABrokenByteIsACharacterByItself) {
    EXPECT_EQ(Text::prefix("a\xff\xfe"
                           "b",
                           2),
              "a\xff");
    EXPECT_EQ(Text::prefix("\xe2\x82", 1), "\xe2");
}

TEST(TextTest, TrimmingTakesWhitespaceOfEveryKindFromBothEnds) {
    EXPECT_EQ(Text::trimmed("  a b \n"), "a b");
    EXPECT_EQ(Text::trimmed("\u00a0\u2003\u2028x\u0085\t"), "x");
    EXPECT_EQ(Text::trimmed(" \t\r\n\u3000"), "");
    EXPECT_EQ(Text::trimmed(""), "");
    EXPECT_EQ(Text::trimmed("x"), "x");
}

TEST(TextTest, WhitespaceIsFoundAnywhere) {
    EXPECT_TRUE(Text::hasWhitespace("a b"));
    EXPECT_TRUE(Text::hasWhitespace("a\u2029"));
    EXPECT_FALSE(Text::hasWhitespace("a\u200bb"));
    EXPECT_FALSE(Text::hasWhitespace("ab"));
    EXPECT_FALSE(Text::hasWhitespace("\xff"));
}

TEST(TextTest, OnlyWellFormedTextIsUtf8) {
    EXPECT_TRUE(Text::isUtf8("aä漢😀"));
    EXPECT_TRUE(Text::isUtf8(""));
    EXPECT_TRUE(Text::isUtf8(std::string_view("\0", 1)));
    EXPECT_FALSE(Text::isUtf8("\xff"));
    EXPECT_FALSE(Text::isUtf8("a\xe2\x82"));
    EXPECT_FALSE(Text::isUtf8("\xed\xa0\x80"));  // a surrogate
    EXPECT_FALSE(Text::isUtf8("\xc0\x80"));      // more bytes than the character needs
    EXPECT_FALSE(Text::isUtf8("\xf4\x90\x80\x80"));
}

TEST(TextTest, WhatDisturbsALineIsEscaped) {
    EXPECT_EQ(Text::escaped("a\nb\r\t\\"), "a\\nb\\r\\t\\\\");
    EXPECT_EQ(Text::escaped("\x1b[2J"), "\\u{1b}[2J");
    EXPECT_EQ(Text::escaped("x\u202ey\u2066"), "x\\u{202e}y\\u{2066}");
    EXPECT_EQ(Text::escaped("\u2028"), "\\u{2028}");
    EXPECT_EQ(Text::escaped("\xff"), "\\xff");
    EXPECT_EQ(Text::escaped(std::string_view("\0", 1)), "\\u{0}");
}

TEST(TextTest, WhatEmojiAndScriptsNeedStays) {
    const std::string text = "👨‍👩‍👧‍👦 ❤️ می‌خواهم";
    EXPECT_EQ(Text::escaped(text), text);
}

TEST(TextTest, NamesThatDifferInCaseOrCompositionFoldToOne) {
    EXPECT_EQ(Text::caseFolded("README"), Text::caseFolded("ReadMe"));
    EXPECT_EQ(Text::caseFolded("\u00C4"), Text::caseFolded("\u00E4"));
    EXPECT_EQ(Text::caseFolded("\u00E4"), Text::caseFolded("a\u0308"));
    EXPECT_EQ(Text::caseFolded("STRASSE"), Text::caseFolded("stra\u00DFe"));
    EXPECT_NE(Text::caseFolded("a"), Text::caseFolded("b"));
    EXPECT_EQ(Text::caseFolded(""), "");
    EXPECT_EQ(Text::caseFolded("A\xff"), "A\xff");
}

}  // namespace
