#include "TranscriptKit/EmojiRanges.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace {

QStringList found(const QString& text) {
    QStringList pieces;
    for (const auto& range : EmojiRanges::find(text)) pieces.append(text.mid(range.start, range.length));
    return pieces;
}

TEST(EmojiRangesTest, TextWithoutEmojiHasNone) {
    for (const char16_t* text : {u"", u"Hello, 12 # * ©", u"שלום 漢字 é ї", u"→ ← ½ ™ ☞ ✓ ★", u"𝒜 𐤀 𠀀", u":-)"})
        EXPECT_EQ(found(QString::fromUtf16(text)), QStringList()) << QString::fromUtf16(text).toStdString();
}

TEST(EmojiRangesTest, AnEmojiIsFoundWhereItStands) {
    const auto ranges = EmojiRanges::find(u"a 😀 b"_qs);
    ASSERT_EQ(ranges.size(), 1u);
    EXPECT_EQ(ranges[0], (EmojiRanges::Range{2, 2}));
}

TEST(EmojiRangesTest, NeighboursAreOneRangeAndOthersAreNot) {
    EXPECT_EQ(found(u"😀🐙 🙂x⌚"_qs), (QStringList{u"😀🐙"_qs, u"🙂"_qs, u"⌚"_qs}));
}

TEST(EmojiRangesTest, OneOfSeveralPartsIsOnePiece) {
    for (const QString& emoji :
         {u"👩‍👩‍👧‍👦"_qs, u"🏳️‍🌈"_qs, u"❤️‍🔥"_qs, u"👍🏽"_qs, u"✌🏿"_qs,
          u"🧑🏿‍🚀"_qs, u"🇩🇪"_qs, u"🇩🇪🇫🇷"_qs, u"🏴󠁧󠁢󠁥󠁮󠁧󠁿"_qs, u"1️⃣"_qs, u"#️⃣"_qs,
          u"*️⃣"_qs, u"👁️‍🗨️"_qs, u"🕵🏻‍♀️"_qs})
        EXPECT_EQ(found(u"x"_qs + emoji + u"y"_qs), QStringList{emoji}) << emoji.toStdString();
}

TEST(EmojiRangesTest, ASelectorDecidesAboutWhatMayBeBoth) {
    EXPECT_EQ(found(u"♥"_qs), QStringList());
    EXPECT_EQ(found(u"♥\uFE0F"_qs), QStringList{u"♥\uFE0F"_qs});
    EXPECT_EQ(found(u"☎\uFE0F ☎"_qs), QStringList{u"☎\uFE0F"_qs});
    EXPECT_EQ(found(u"©\uFE0F"_qs), QStringList{u"©\uFE0F"_qs});
    EXPECT_EQ(found(u"⌚\uFE0E"_qs), QStringList());
    EXPECT_EQ(found(u"😀\uFE0E"_qs), QStringList());
}

TEST(EmojiRangesTest, DigitsAloneAreNone) {
    for (const QString& text :
         {u"1"_qs, u"12:30 ⌛"_qs.left(5), u"1\uFE0F"_qs, u"1\u20E3"_qs, u"#\uFE0F"_qs, u"a\uFE0F"_qs})
        EXPECT_EQ(found(text), QStringList()) << text.toStdString();
    EXPECT_EQ(found(u"11️⃣1"_qs), QStringList{u"1️⃣"_qs});
}

TEST(EmojiRangesTest, HalfAFlagOrHalfAPairIsNone) {
    EXPECT_EQ(found(u"🇩"_qs), QStringList());
    EXPECT_EQ(found(QString(QChar(0xD83D))), QStringList());
    EXPECT_EQ(found(QString(QChar(0xDE00)) + QChar(0xD83D)), QStringList());
}

TEST(EmojiRangesTest, ALongTextIsReadOnce) {
    EXPECT_EQ(EmojiRanges::find(u"👩‍👩‍👧‍👦 x"_qs.repeated(50'000)).size(), 50'000u);
    EXPECT_EQ(EmojiRanges::find(u"😀"_qs.repeated(200'000)).size(), 1u);
    EXPECT_EQ(EmojiRanges::find(u"👩"_qs + u"\u200d👩"_qs.repeated(200'000)).size(), 1u);
}

TEST(EmojiRangesTest, OnlyEmojiMeansNothingElseButBlanksAndNoMoreThanAllowed) {
    EXPECT_TRUE(EmojiRanges::isOnlyEmoji(u"😀"_qs, 3));
    EXPECT_TRUE(EmojiRanges::isOnlyEmoji(u" 👩‍👩‍👧‍👦 🇩🇪\n1️⃣ "_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u"😀😀😀😀"_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u"😀!"_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u"♥"_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u"1"_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u""_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u"  "_qs, 3));
    EXPECT_FALSE(EmojiRanges::isOnlyEmoji(u"😀"_qs, 0));
}

}  // namespace
