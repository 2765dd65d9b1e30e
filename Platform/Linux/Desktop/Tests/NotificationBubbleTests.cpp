#include "PlatformDesktop/NotificationBubble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::EndsWith;
using ::testing::Not;

namespace {

const QString entry = QStringLiteral("zorvane.Vimble");
constexpr NotificationAbilities everything{
    .actions = true, .body = true, .bodyMarkup = true, .picture = true, .sound = true};
constexpr NotificationAbilities plainBody{.body = true};

UserNotification message(std::string title, std::string body, std::string subtitle = "chat.example.com") {
    return {"1", UserNotification::Kind::message, std::move(title), std::move(subtitle), std::move(body)};
}

NotificationBubble bubble(const UserNotification& notification, const NotificationAbilities& abilities) {
    return NotificationBubble::from(notification, abilities, entry);
}

std::string summary(const UserNotification& notification, const NotificationAbilities& abilities = everything) {
    return bubble(notification, abilities).summary.toStdString();
}

std::string body(std::string words, const NotificationAbilities& abilities = plainBody) {
    return bubble(message("Ann", std::move(words)), abilities).body.toStdString();
}

std::string repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; i++) all += text;
    return all;
}

TEST(NotificationBubbleTest, TheHostStandsBehindTheTitleAndTheWordsAreTheBody) {
    const NotificationBubble shown = bubble(message("🦊 Ann", "Hello\nthere"), everything);
    EXPECT_EQ(shown.summary.toStdString(), "🦊 Ann · chat.example.com");
    EXPECT_EQ(shown.body.toStdString(), "Hello\nthere");
    EXPECT_EQ(summary(message("🦊 Ann", "Hello", "")), "🦊 Ann");
}

TEST(NotificationBubbleTest, WhatCameIsToldByTheCategory) {
    UserNotification notification = message("Ann is online", "");
    EXPECT_EQ(bubble(notification, everything).hints[QStringLiteral("category")], QStringLiteral("im.received"));
    notification.kind = UserNotification::Kind::presence;
    const NotificationBubble shown = bubble(notification, everything);
    EXPECT_EQ(shown.hints[QStringLiteral("category")], QStringLiteral("presence.online"));
    EXPECT_EQ(shown.hints[QStringLiteral("desktop-entry")], entry);
    EXPECT_EQ(shown.body, QString());
}

TEST(NotificationBubbleTest, WhatTheServiceCanNotDoIsLeftOut) {
    const NotificationAbilities all = NotificationAbilities::from(
        {QStringLiteral("actions"), QStringLiteral("body"), QStringLiteral("body-markup"),
         QStringLiteral("icon-static"), QStringLiteral("sound"), QStringLiteral("x-something")});
    EXPECT_EQ(all, everything);
    EXPECT_EQ(NotificationAbilities::from({QStringLiteral("body-hyperlinks")}), NotificationAbilities());

    const NotificationBubble able = bubble(message("Ann", "a"), everything);
    ASSERT_EQ(able.actions.size(), 2);
    EXPECT_EQ(able.actions[0], QStringLiteral("default"));
    EXPECT_FALSE(able.actions[1].isEmpty());
    EXPECT_EQ(able.hints[QStringLiteral("suppress-sound")], true);

    const NotificationBubble unable = bubble(message("Ann", "a"), {});
    EXPECT_TRUE(unable.actions.isEmpty());
    EXPECT_FALSE(unable.hints.contains(QStringLiteral("suppress-sound")));
}

TEST(NotificationBubbleTest, WordsAreEscapedOnlyWhereTheyWouldBeReadAsMarkUp) {
    const std::string words = "<b>1 < 2 && \"3\" > '2'</b> &amp;";
    EXPECT_EQ(body(words, everything), "&lt;b&gt;1 &lt; 2 &amp;&amp; \"3\" &gt; '2'&lt;/b&gt; &amp;amp;");
    EXPECT_EQ(body(words), words);
    EXPECT_EQ(summary(message("<i>Ann</i> & co", "a", "")), "<i>Ann</i> & co");
}

TEST(NotificationBubbleTest, WithoutABodyTheWordsFollowTheTitleOnOneLine) {
    const NotificationBubble shown = bubble(message("🦊 Ann", "Hello\n<b>there</b>"), {.bodyMarkup = true});
    EXPECT_EQ(shown.summary.toStdString(), "🦊 Ann: Hello <b>there</b>");
    EXPECT_EQ(shown.body, QString());
    EXPECT_EQ(summary(message("🦊 Ann is online", ""), {}), "🦊 Ann is online · chat.example.com");
}

TEST(NotificationBubbleTest, ControlAndDirectionChangingCharactersAreHarmless) {
    EXPECT_EQ(body("a\x1b[31mb\a\tc\r\nd"), "a[31mb\tc\nd");
    EXPECT_EQ(body(std::string("nul\0l", 5)), "null");
    // A change of direction without an end is closed; an end without a beginning is removed.
    EXPECT_EQ(body("a\u202Eb"), "a\u202Eb\u202C");
    EXPECT_EQ(body("a\u202Cb\u2069c"), "abc");
    EXPECT_EQ(body("a\xff\xfe"), "a\uFFFD\uFFFD");
    EXPECT_EQ(summary(message("An\u202En\n\x01", "a", "ho\u202Est")), "Ann  · host");
}

TEST(NotificationBubbleTest, ANameFromRightToLeftLeavesTheHostInItsPlace) {
    EXPECT_EQ(summary(message("דנה", "a", "host")), "\u2068דנה\u2069 · host");
}

TEST(NotificationBubbleTest, BlanksAroundTheWordsGo) { EXPECT_EQ(body("\n\n  hello \n"), "hello"); }

TEST(NotificationBubbleTest, LongWordsAreCutAfterAThousandCharactersAsPeopleCountThem) {
    const std::string family = "👩‍👩‍👧";
    EXPECT_EQ(body(repeated("ä", 1000)), repeated("ä", 1000));
    EXPECT_EQ(body(repeated("ä", 1001)), repeated("ä", 1000) + "…");
    // These texts exceed the limit of bytes: they are cut between two emoji or within one, but never within a code
    // point.
    for (int before = 0; before < 24; before++) {
        const std::string shown = body(std::string(static_cast<std::size_t>(before), 'a') + repeated(family, 2000));
        EXPECT_THAT(shown, EndsWith("…"));
        EXPECT_EQ(shown.find("\uFFFD"), std::string::npos) << before;
        EXPECT_LE(shown.size(), 16003U);
        EXPECT_GE(shown.size(), 15900U);
    }
    // All marks belong to one user-perceived character, so that only the limit of bytes cuts this text.
    EXPECT_LE(body("a" + repeated("\u0301", 100000)).size(), 16003U);
}

TEST(NotificationBubbleTest, ManyLinesAreCut) {
    EXPECT_EQ(body(repeated("x\n", 12)), repeated("x\n", 11) + "x");
    EXPECT_EQ(body(repeated("x\n", 13)), repeated("x\n", 11) + "x…");
}

TEST(NotificationBubbleTest, AnEndlessTitleIsCut) {
    EXPECT_LE(summary(message(repeated("a", 100000), "b", repeated("c", 100000))).size(), 2 * 203U + 4);
}

TEST(NotificationBubbleTest, ASpoiledEndOfTheBytesThatAreLookedAtCostsNoMore) {
    EXPECT_THAT(body(std::string(20000, '\x80')), EndsWith("…"));
    EXPECT_THAT(body(repeated("ab", 8000)), Not(EndsWith("b")));
}

}  // namespace
