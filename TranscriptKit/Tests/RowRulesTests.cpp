#include "TranscriptKit/RowRules.h"
#include "ZoneGuard.h"

#include <cmath>
#include <limits>
#include <string>

#include <QDateTime>

#include <gtest/gtest.h>

namespace {

constexpr RowLook both{.showTime = true, .showEmoji = true};
constexpr RowLook none{.showTime = false, .showEmoji = false};
constexpr RowLook onlyEmoji{.showTime = false, .showEmoji = true};

Transcript::Item text(double time, const char* author = "ann") {
    return Transcript::Text{.text = "t", .time = Date{time}, .emoji = "🙂", .author = author, .toolTip = author};
}

Transcript::Item note(double time) { return Transcript::Activity{.text = "note", .time = Date{time}}; }

Transcript::Item daybreak() { return Transcript::Daybreak{.day = Day(2020, 1, 1)}; }

RowLook lookOfLast(SharedList<Transcript::Item> items) {
    const std::size_t last = items.size() - 1;
    return RowRules::look({.items = std::move(items)}, last);
}

std::string clockAt(int hour, int minute, int second = 0) {
    const QDateTime instant(QDate(2020, 6, 1), QTime(hour, minute, second), Qt::UTC);
    return RowRules::timeText(Date::fromUnix(static_cast<double>(instant.toSecsSinceEpoch()))).toStdString();
}

TEST(RowRulesTest, TheFirstTextShowsBoth) {
    EXPECT_EQ(lookOfLast({text(0)}), both);
    EXPECT_EQ(lookOfLast({daybreak(), text(0)}), both);
    EXPECT_EQ(lookOfLast({daybreak(), note(0), note(1), text(1)}), both);
}

TEST(RowRulesTest, ATextOfTheSameAuthorWithinFiveMinutesShowsNeither) {
    EXPECT_EQ(lookOfLast({text(0), text(0)}), none);
    EXPECT_EQ(lookOfLast({text(0), text(299)}), none);
    EXPECT_EQ(lookOfLast({text(0), text(299.999)}), none);
}

TEST(RowRulesTest, FiveMinutesOpenABlock) {
    EXPECT_EQ(lookOfLast({text(0), text(300)}), both);
    EXPECT_EQ(lookOfLast({text(0), text(86400)}), both);
}

TEST(RowRulesTest, TheGapCountsFromTheRowJustBefore) {
    EXPECT_EQ(lookOfLast({text(0), text(299), text(598), text(897)}), none);
    EXPECT_EQ(lookOfLast({text(0), text(299), text(599)}), both);
}

TEST(RowRulesTest, AnotherAuthorShowsTheEmojiAlone) {
    EXPECT_EQ(lookOfLast({text(0, "ann"), text(299, "bob")}), onlyEmoji);
    EXPECT_EQ(lookOfLast({text(0, "ann"), text(300, "bob")}), both);
    EXPECT_EQ(lookOfLast({text(0, "ann"), text(10, "bob"), text(20, "ann")}), onlyEmoji);
}

TEST(RowRulesTest, NotesAndDaybreaksAreSteppedOver) {
    EXPECT_EQ(lookOfLast({text(0), daybreak(), text(299)}), none);
    EXPECT_EQ(lookOfLast({text(0), note(100), text(299)}), none);
    EXPECT_EQ(lookOfLast({text(0), note(100), daybreak(), note(200), text(300)}), both);
    EXPECT_EQ(lookOfLast({text(0, "ann"), note(100), daybreak(), text(200, "bob")}), onlyEmoji);
}

TEST(RowRulesTest, RowsThatAreNoTextsShowNothing) {
    EXPECT_EQ(lookOfLast({daybreak()}), none);
    EXPECT_EQ(lookOfLast({text(0), note(1000)}), none);
}

TEST(RowRulesTest, EqualAuthorsNeedNotBeShared) {
    SharedList<Transcript::Item> items{text(0, "ann"), text(1, "ann")};
    EXPECT_EQ(lookOfLast(items), none);
}

TEST(RowRulesTest, TheClockHasTwelveHours) {
    const ZoneGuard guard("UTC");
    EXPECT_EQ(clockAt(0, 0), "12:00");
    EXPECT_EQ(clockAt(0, 5), "12:05");
    EXPECT_EQ(clockAt(1, 59, 59), "1:59");
    EXPECT_EQ(clockAt(12, 0), "12:00");
    EXPECT_EQ(clockAt(13, 7), "1:07");
    EXPECT_EQ(clockAt(23, 59), "11:59");
}

TEST(RowRulesTest, TheClockIsThatOfTheUser) {
    {
        const ZoneGuard guard("Europe/Berlin");
        EXPECT_EQ(clockAt(13, 7), "3:07");
    }
    const ZoneGuard guard("Asia/Kathmandu");
    EXPECT_EQ(clockAt(13, 7), "6:52");
}

TEST(RowRulesTest, AnyTimeHasAClock) {
    const double huge = std::numeric_limits<double>::max(), infinity = std::numeric_limits<double>::infinity();
    const ZoneGuard guard("UTC");
    for (const double time : {huge, infinity, 1e20}) EXPECT_EQ(RowRules::timeText(Date{time}), "11:59");
    for (const double time : {-huge, -infinity, -1e20, std::nan("")})
        EXPECT_EQ(RowRules::timeText(Date{time}), "12:00");
    EXPECT_EQ(lookOfLast({text(-huge), text(huge)}), both);
    EXPECT_EQ(lookOfLast({text(infinity), text(infinity)}), none);
}

}  // namespace
