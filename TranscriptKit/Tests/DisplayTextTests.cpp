#include "TranscriptKit/DisplayText.h"

#include <string>

#include <QList>

#include <gtest/gtest.h>

namespace {

using std::string_literals::operator""s;

std::string name(std::string_view text) { return DisplayText::name(text).toStdString(); }
std::string line(std::string_view text) { return DisplayText::line(text).toStdString(); }
std::string message(std::string_view text) { return DisplayText::message(text).toStdString(); }

std::string repeated(std::string_view piece, int count) {
    std::string text;
    for (; count > 0; --count) text += piece;
    return text;
}

TEST(DisplayTextTest, AnOrdinaryNameStaysAsItIs) {
    for (const char* text : {"", "Ann", "Zoë von Öhm-Łódź", "山田 太郎", "O'Neil & <b>Sons</b>",
                             "👩‍👩‍👧‍👦", "🏳️‍🌈 Kim", "1️⃣", "नमस्ते", "ไทย", " \\ "})
        EXPECT_EQ(name(text), text);
}

TEST(DisplayTextTest, LineEndsAndTabsOfANameBecomeBlanks) {
    EXPECT_EQ(name("a\nb\tc\rd\r\ne\u2028f\u2029g\u0085h\vi\fj"), "a b c d e f g h i j");
}

TEST(DisplayTextTest, ControlCharactersOfANameGo) { EXPECT_EQ(name("a\0b\x1b[2Jc\x7f\u009b!"s), "ab[2Jc!"); }

TEST(DisplayTextTest, WhatTurnsTheDirectionOfANameGoes) {
    for (const char* turn : {"\u202a", "\u202b", "\u202c", "\u202d", "\u202e", "\u2066", "\u2067", "\u2068", "\u2069",
                             "\u200e", "\u200f", "\u061c", "\u206a", "\u206f"})
        EXPECT_EQ(name("Ann"s + turn + "gpj.exe" + turn), "Anngpj.exe");
}

TEST(DisplayTextTest, ANameWithRightToLeftLettersStandsBetweenIsolates) {
    EXPECT_EQ(name("דנה"), "\u2068דנה\u2069");
    EXPECT_EQ(name("Ann (سارة)"), "\u2068Ann (سارة)\u2069");
    EXPECT_EQ(name("\u2069סוף\u2068"), "\u2068סוף\u2069");
    EXPECT_EQ(name("𐤀 x"), "\u2068𐤀 x\u2069");  // a letter of two UTF-16 units
}

TEST(DisplayTextTest, ALongNameIsCutBehindTwoHundredCharacters) {
    EXPECT_EQ(name(repeated("x", 200)), repeated("x", 200));
    EXPECT_EQ(name(repeated("x", 201)), repeated("x", 200) + "…");
    EXPECT_EQ(name(repeated("👩‍👩‍👧‍👦", 200)), repeated("👩‍👩‍👧‍👦", 200));
    EXPECT_EQ(name(repeated("👩‍👩‍👧‍👦", 1000)), repeated("👩‍👩‍👧‍👦", 200) + "…");
    EXPECT_EQ(name(repeated("ש", 300)), "\u2068" + repeated("ש", 200) + "…\u2069");
    EXPECT_EQ(DisplayText::name(repeated("long name ", 100'000)).size(), 201);
}

TEST(DisplayTextTest, OfTheMarksOnOneLetterSixteenAreKept) {
    EXPECT_EQ(name("Z" + repeated("\u0334", 16) + "a"), "Z" + repeated("\u0334", 16) + "a");
    EXPECT_EQ(name("Z" + repeated("\u0334", 100'000) + "al" + repeated("\u0489", 17) + "go"),
              "Z" + repeated("\u0334", 16) + "al" + repeated("\u0489", 16) + "go");
}

TEST(DisplayTextTest, ACharacterOfManyPartsIsHeldToThirtyTwo) {
    const QString shown = DisplayText::name("👩" + repeated("\u200d👩", 10'000));
    EXPECT_EQ(shown.toUcs4().size(), 32);
}

TEST(DisplayTextTest, WhatIsNotUtf8IsShownAsSuch) {
    EXPECT_EQ(name("a\xff\xfe"), "a\uFFFD\uFFFD");
    EXPECT_TRUE(QString::fromStdString(name("\xf0\x9f\x98")).contains(QChar(0xFFFD)));  // cut short
    EXPECT_TRUE(QString::fromStdString(name("\xed\xa0\x80x")).endsWith(u'x'));          // half a pair
    EXPECT_EQ(message("\xc3\x28"), "\uFFFD(");
    EXPECT_EQ(line("a\xff\\"), "a\\xff\\");
}

TEST(DisplayTextTest, WhatALayoutTakesForAnObjectIsReplaced) {
    for (const char* odd : {"\uFFFC", "\uFDD0", "\uFDD1", "\uFFFE", "\uFFFF", "\U0001FFFF"}) {
        EXPECT_EQ(name("a"s + odd + "b"), "a\uFFFDb");
        EXPECT_EQ(message("a"s + odd + "b"), "a\uFFFDb");
    }
}

TEST(DisplayTextTest, NobodyGoesWithoutAName) {
    const auto shown = [](std::string_view name) {
        Person person;
        person.publicKey = "0123456789ab";
        person.name = name;
        return DisplayText::person(person).toStdString();
    };
    for (const char* text :
         {"", " ", "\u200E", "\u200B\u00AD", "\n\t", "\u3164\u2800\u00A0", "\uFE0F", "\u0301", "\x7f"})
        EXPECT_EQ(shown(text), "anonymous012345") << testing::PrintToString(std::string(text));
    for (const char* text : {"Ann", "é", "🐙", "٣", ".", "\uE000", "\u3164x"})
        EXPECT_EQ(shown(text).find("anon"), std::string::npos) << text;
    EXPECT_EQ(shown("a\nb"), "a b");
}

TEST(DisplayTextTest, ALineShowsWhatCouldSteerAsEscapes) {
    EXPECT_EQ(line("a\nb\r\tc\u202e\u2066\u200f\x1b[0m\0"s), "a\\nb\\r\\tc\\u{202e}\\u{2066}\\u{200f}\\u{1b}[0m\\u{0}");
    EXPECT_EQ(line("👩‍👩‍👧 é \u2028"), "👩‍👩‍👧 é \\u{2028}");
}

TEST(DisplayTextTest, ABackslashOfALineStaysSingle) {
    EXPECT_EQ(line("\\"), "\\");
    EXPECT_EQ(line("C:\\new\\\\x"), "C:\\new\\\\x");
    EXPECT_EQ(line("\\\n\\"), "\\\\n\\");
}

TEST(DisplayTextTest, AnOrdinaryMessageStaysAsItIs) {
    for (const char* text :
         {"", "a\nb\n\n\tc ", "שלום world", "👩‍👩‍👧‍👦 ♥️ 1️⃣", "\u200eleft mark\u200f"})
        EXPECT_EQ(message(text), text);
}

TEST(DisplayTextTest, ControlCharactersOfAMessageGoAndItsLineEndsAreOfOneKind) {
    EXPECT_EQ(message("a\0b\x1b[1m\x7f\u0090"s), "ab[1m");
    EXPECT_EQ(message("a\r\nb\rc\u2028d\u2029e\n\r\nf"), "a\nb\nc\nd\ne\n\nf");
}

TEST(DisplayTextTest, AChangeOfDirectionEndsWithItsLine) {
    EXPECT_EQ(message("a\u202eb\nc"), "a\u202eb\u202c\nc");
    EXPECT_EQ(message("\u2066x\u202by"), "\u2066x\u202by\u202c\u2069");
    EXPECT_EQ(message("a\u202e\r\n\u2067b"), "a\u202e\u202c\n\u2067b\u2069");
    EXPECT_EQ(message("a\u202eb\u202cc\nd"), "a\u202eb\u202cc\nd");
    EXPECT_EQ(message("\u2068\u202dx\u2069y"), "\u2068\u202dx\u2069y");  // the isolate's end closes both
}

TEST(DisplayTextTest, WhatClosesNothingOfItsLineGoes) {
    EXPECT_EQ(message("a\u2069b\u202cc"), "abc");
    EXPECT_EQ(message("\u202ea\nb\u202cc"), "\u202ea\u202c\nbc");
    EXPECT_EQ(message("\u202e\u2066a\u202cb"),
              "\u202e\u2066ab\u2069\u202c");  // U+202C can't close what is outside the isolate
}

TEST(DisplayTextTest, AMessageFullOfDirectionsCostsNoMoreThanItsLength) {
    const std::string text = repeated("\u2067", 200'000) + repeated("\u202c", 200'000) + repeated("\u2069", 100'000);
    EXPECT_EQ(DisplayText::message(text).size(), 400'000);
}

}  // namespace
