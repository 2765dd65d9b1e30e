#include "TranscriptKit/Day.h"
#include "TranscriptKit/DayFinder.h"
#include "ZoneGuard.h"

#include <cmath>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <unordered_set>

#include <QDateTime>

#include <gtest/gtest.h>

/// Lets a failed assertion show the day.
void PrintTo(const Day& day, std::ostream* out) { *out << day.description(); }

namespace {

const QLocale english(QLocale::English, QLocale::UnitedStates);
const QLocale german(QLocale::German, QLocale::Germany);

/// The instant at which clocks in UTC show this.
Date utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    const QDateTime instant(QDate(year, month, day), QTime(hour, minute, second), Qt::UTC);
    return Date::fromUnix(static_cast<double>(instant.toSecsSinceEpoch()));
}

std::string dayAt(Date instant, const char* zone) { return Day(instant, QTimeZone(zone)).description(); }

std::string whyNot(std::string_view text) {
    try {
        return Day::decoded(text).description();
    } catch (const DayError& error) {
        return error.what();
    }
}

TEST(DayTest, AnInstantIsOnAnotherDayInAnotherZone) {
    const Date instant = utc(2020, 12, 31, 23, 30);
    EXPECT_EQ(dayAt(instant, "UTC"), "2020-12-31");
    EXPECT_EQ(dayAt(instant, "Europe/Berlin"), "2021-01-01");
    EXPECT_EQ(dayAt(instant, "America/Sao_Paulo"), "2020-12-31");
    EXPECT_EQ(dayAt(instant, "Pacific/Kiritimati"), "2021-01-01");
    EXPECT_EQ(dayAt(utc(2021, 1, 1, 9, 59, 59), "Pacific/Honolulu"), "2020-12-31");
    EXPECT_EQ(dayAt(utc(2021, 1, 1, 10), "Pacific/Honolulu"), "2021-01-01");
}

TEST(DayTest, WithoutAZoneTheUsersIsTaken) {
    const Date instant = utc(2020, 6, 1, 22, 30);
    {
        const ZoneGuard guard("Europe/Berlin");
        EXPECT_EQ(Day(instant), Day(2020, 6, 2));
        EXPECT_EQ(Day(2020, 6, 2).date(), utc(2020, 6, 1, 22));
        EXPECT_EQ(Day::today(instant), Day(2020, 6, 2));
    }
    const ZoneGuard guard("America/New_York");
    EXPECT_EQ(Day(instant), Day(2020, 6, 1));
    EXPECT_EQ(Day(2020, 6, 2).date(), utc(2020, 6, 2, 4));
}

TEST(DayTest, LeapDaysAndYearEndsAreWhereTheCalendarHasThem) {
    EXPECT_EQ(dayAt(utc(2020, 2, 28, 23, 59, 59) + 1, "UTC"), "2020-02-29");
    EXPECT_EQ(dayAt(utc(2021, 2, 28, 23, 59, 59) + 1, "UTC"), "2021-03-01");
    EXPECT_EQ(dayAt(utc(2000, 2, 29, 12), "UTC"), "2000-02-29");
    EXPECT_EQ(dayAt(utc(1900, 2, 28, 23, 59, 59) + 1, "UTC"), "1900-03-01");
    EXPECT_EQ(dayAt(utc(2019, 12, 31, 23, 59, 59) + 0.999, "UTC"), "2019-12-31");
    EXPECT_EQ(dayAt(utc(2020, 1, 1), "UTC"), "2020-01-01");
    EXPECT_EQ(dayAt(Date{0}, "UTC"), "2001-01-01");
    EXPECT_EQ(dayAt(Date{-0.001}, "UTC"), "2000-12-31");
}

TEST(DayTest, ADayStartsAtMidnight) {
    EXPECT_EQ(Day(2020, 6, 2).date(QTimeZone("Europe/Berlin")), utc(2020, 6, 1, 22));
    EXPECT_EQ(Day(2020, 1, 2).date(QTimeZone("Europe/Berlin")), utc(2020, 1, 1, 23));
    EXPECT_EQ(Day(2020, 2, 29).date(QTimeZone::utc()), utc(2020, 2, 29));
    EXPECT_EQ(Day(2001, 1, 1).date(QTimeZone::utc()), Date{0});
    EXPECT_EQ(Day(1, 1, 1).date(QTimeZone::utc()).toUnix(), -62135596800.0);
}

TEST(DayTest, WhereTheClockSkipsMidnightADayStartsBehindTheGap) {
    const QTimeZone saoPaulo("America/Sao_Paulo");
    EXPECT_EQ(Day(2018, 11, 4).date(saoPaulo), utc(2018, 11, 4, 3));  // 00:00 became 01:00
    EXPECT_EQ(Day(utc(2018, 11, 4, 2, 59, 59), saoPaulo), Day(2018, 11, 3));
    EXPECT_EQ(Day(utc(2018, 11, 4, 3), saoPaulo), Day(2018, 11, 4));
    const QTimeZone beirut("Asia/Beirut");
    EXPECT_EQ(Day(2022, 3, 27).date(beirut), utc(2022, 3, 26, 22));
    EXPECT_EQ(Day(utc(2022, 3, 26, 21, 59, 59), beirut), Day(2022, 3, 26));
    EXPECT_EQ(Day(utc(2022, 3, 26, 22), beirut), Day(2022, 3, 27));
}

TEST(DayTest, WhereAnHourComesTwiceBeforeMidnightTheDayGoesOn) {
    const QTimeZone saoPaulo("America/Sao_Paulo");
    // At 00:00 on the 18th the clocks went back to 23:00 on the 17th.
    EXPECT_EQ(Day(utc(2018, 2, 18, 1, 30), saoPaulo), Day(2018, 2, 17));
    EXPECT_EQ(Day(utc(2018, 2, 18, 2, 30), saoPaulo), Day(2018, 2, 17));
    EXPECT_EQ(Day(utc(2018, 2, 18, 3), saoPaulo), Day(2018, 2, 18));
    EXPECT_EQ(Day(2018, 2, 18).date(saoPaulo), utc(2018, 2, 18, 3));
}

TEST(DayTest, ADayThatAZoneLeftOutStartsWithTheNext) {
    EXPECT_EQ(Day(2011, 12, 30).date(QTimeZone("Pacific/Apia")), Day(2011, 12, 31).date(QTimeZone("Pacific/Apia")));
}

TEST(DayTest, TheFinderAgreesWithTheZoneAtEveryInstant) {
    constexpr unsigned seed = 31;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (const char* name : {"UTC", "Europe/Berlin", "America/Sao_Paulo", "Asia/Beirut", "America/St_Johns",
                             "Asia/Kathmandu", "Australia/Lord_Howe", "Pacific/Apia", "Africa/Casablanca",
                             "America/New_York", "Asia/Tehran", "Europe/Dublin"}) {
        const QTimeZone zone(name);
        ASSERT_TRUE(zone.isValid()) << name;
        DayFinder finder(zone);
        qint64 seconds = -2'000'000'000;  // 1906
        for (int i = 0; i < 8000; ++i) {
            seconds += static_cast<qint64>(random() % (i % 2 == 0 ? 2'000'000 : 3600));  // up to 2096
            if (i % 50 == 0) seconds -= 1'000'000;
            const QDate date = QDateTime::fromSecsSinceEpoch(seconds, zone).date();
            ASSERT_EQ(finder.day(Date::fromUnix(static_cast<double>(seconds))),
                      Day(date.year(), date.month(), date.day()))
                << name << " " << seconds;
        }
    }
}

TEST(DayTest, AroundEveryChangeOfClocksTheFinderAgreesWithTheZone) {
    for (const char* name : {"America/St_Johns", "America/Sao_Paulo", "Asia/Beirut", "Asia/Gaza", "Africa/Cairo"}) {
        const QTimeZone zone(name);
        DayFinder finder(zone);
        const auto transitions = zone.transitions(QDateTime(QDate(1970, 1, 1), QTime(), Qt::UTC),
                                                  QDateTime(QDate(2030, 1, 1), QTime(), Qt::UTC));
        ASSERT_GT(transitions.size(), 10) << name;
        for (const auto& transition : transitions) {
            for (const int away : {-7200, -3601, -3600, -61, -60, -1, 0, 1, 59, 60, 3540, 3599, 3600, 7200}) {
                const qint64 seconds = transition.atUtc.toSecsSinceEpoch() + away;
                const QDate date = QDateTime::fromSecsSinceEpoch(seconds, zone).date();
                ASSERT_EQ(finder.day(Date::fromUnix(static_cast<double>(seconds))),
                          Day(date.year(), date.month(), date.day()))
                    << name << " " << seconds;
            }
        }
    }
}

TEST(DayTest, TheStartOfADayIsItsFirstInstant) {
    for (const char* name :
         {"Europe/Berlin", "America/Sao_Paulo", "Asia/Beirut", "Pacific/Kiritimati", "Asia/Kathmandu"}) {
        const QTimeZone zone(name);
        for (QDate date(2015, 1, 1); date < QDate(2024, 1, 1); date = date.addDays(1)) {
            const Day day(date.year(), date.month(), date.day());
            ASSERT_EQ(Day(day.date(zone), zone), day) << name;
            ASSERT_LT(Day(day.date(zone) - 1, zone), day) << name;
        }
    }
}

TEST(DayTest, ATimeOfADamagedFileCountsAsTheNearestDayThereIs) {
    for (const char* name : {"UTC", "Europe/Berlin", "America/Sao_Paulo", "Pacific/Kiritimati"}) {
        const QTimeZone zone(name);
        const double huge = std::numeric_limits<double>::max(), infinity = std::numeric_limits<double>::infinity();
        for (const double late : {3e11, 1e12, 1e18, 1e300, huge, infinity})
            EXPECT_EQ(Day(Date{late}, zone), Day(9999, 12, 31)) << late;
        for (const double early : {-7e10, -1e12, -1e18, -1e300, -huge, -infinity})
            EXPECT_EQ(Day(Date{early}, zone), Day(1, 1, 1)) << early;
        EXPECT_EQ(Day(Date{std::nan("")}, zone), Day(1, 1, 1));
        DayFinder finder(zone);
        EXPECT_EQ(finder.day(Date{huge}), Day(9999, 12, 31));
        EXPECT_EQ(finder.day(Date{std::nan("")}), Day(1, 1, 1));
        EXPECT_EQ(finder.day(utc(2020, 6, 1, 6)), Day(2020, 6, 1));
        EXPECT_EQ(finder.day(Date{-huge}), Day(1, 1, 1));
        EXPECT_EQ(finder.day(utc(2020, 6, 1, 6)), Day(2020, 6, 1));
    }
}

TEST(DayTest, TodayOfANightOwlChangesFourHoursAfterMidnight) {
    const QTimeZone berlin("Europe/Berlin");
    const Date midnight = utc(2020, 6, 1, 22);
    EXPECT_EQ(Day::today(midnight - 1, berlin), Day(2020, 6, 1));
    EXPECT_EQ(Day::today(midnight, berlin), Day(2020, 6, 2));
    EXPECT_EQ(Day::today(midnight, berlin, true), Day(2020, 6, 1));
    EXPECT_EQ(Day::today(midnight + 14399, berlin, true), Day(2020, 6, 1));
    EXPECT_EQ(Day::today(midnight + 14400, berlin, true), Day(2020, 6, 2));
    // Four hours, even where the clock jumps in between.
    EXPECT_EQ(Day::today(utc(2018, 11, 4, 6, 59), QTimeZone("America/Sao_Paulo"), true), Day(2018, 11, 3));
    EXPECT_EQ(Day::today(utc(2018, 11, 4, 7), QTimeZone("America/Sao_Paulo"), true), Day(2018, 11, 4));
}

TEST(DayTest, DaysAreOrderedByYearThenMonthThenDay) {
    EXPECT_LT(Day(2019, 12, 31), Day(2020, 1, 1));
    EXPECT_LT(Day(2020, 1, 31), Day(2020, 2, 1));
    EXPECT_LT(Day(2020, 2, 1), Day(2020, 2, 2));
    EXPECT_EQ(Day(2020, 2, 2), Day(2020, 2, 2));
    EXPECT_FALSE(Day(2020, 2, 2) == Day(2020, 2, 3));
}

TEST(DayTest, EqualDaysHaveOneHashAndOthersHardlyEver) {
    std::unordered_set<std::size_t> hashes;
    for (QDate date(2000, 1, 1); date < QDate(2010, 1, 1); date = date.addDays(1))
        hashes.insert(std::hash<Day>()({date.year(), date.month(), date.day()}));
    EXPECT_EQ(hashes.size(), 3653u);
    EXPECT_EQ(std::hash<Day>()({2020, 1, 1}), std::hash<Day>()({2020, 1, 1}));
    const std::int64_t most = std::numeric_limits<std::int64_t>::max();
    std::hash<Day>()({most, most, most});
}

TEST(DayTest, TheDescriptionFillsUpWithZeros) {
    EXPECT_EQ(Day(2020, 1, 2).description(), "2020-01-02");
    EXPECT_EQ(Day(33, 11, 12).description(), "0033-11-12");
    EXPECT_EQ(Day(12345, 1, 1).description(), "12345-01-01");
    EXPECT_EQ(Day(-5, 1, 1).description(), "-005-01-01");
    const std::int64_t least = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(Day(least, least, least).description().size(), 62u);
}

TEST(DayTest, WhatWasCodedIsDecoded) {
    for (const Day& day : {Day(2020, 1, 2), Day(1, 12, 31), Day(9999, 2, 29)})
        EXPECT_EQ(Day::decoded(day.description()), day);
    EXPECT_EQ(Day::decoded("0000-01-01"), Day(0, 1, 1));
}

TEST(DayTest, ATextOfAnotherFormIsRefused) {
    const std::string form = "Day encoding must be formatted like YYYY-MM-DD";
    for (const char* text :
         {"", "-", "2020", "2020-01", "2020-1-01", "2020-01-1", "20-01-01", "02020-01-01", "2020-001-01",
          "2020-01-01-01", "2020-01-01-0", "20200101", "2020/01/01", "----", "2020-01-01 "})
        EXPECT_EQ(whyNot(text), form) << text;
    EXPECT_EQ(whyNot(std::string(1'000'000, '-')), form);
    EXPECT_EQ(whyNot(std::string(1'000'000, '1')), form);
}

TEST(DayTest, PiecesThatAreNoNumbersAreRefused) {
    const std::string numbers = "Day could not be broken up into numeric values";
    for (const char* text : {"2020-ab-01", "20x0-01-01", "2020-01-0x", "2020- 1-01", "2020-01-1 ", "é020-01-01",
                             "2020-é1-01", "२०२०-०१-०१", "2020-0.-01", "2020-++-01"})
        EXPECT_EQ(whyNot(text), numbers) << text;
}

TEST(DayTest, MonthAndDayAreHeldToTheirRanges) {
    const std::string month = "Day encoded month is out of valid range", day = "Day encoded day is out of valid range";
    EXPECT_EQ(whyNot("2020-13-01"), month);
    EXPECT_EQ(whyNot("2020-00-01"), month);
    EXPECT_EQ(whyNot("2020-13-32"), month);
    EXPECT_EQ(whyNot("2020-12-32"), day);
    EXPECT_EQ(whyNot("2020-12-00"), day);
    EXPECT_EQ(whyNot("2020-02-31"), "2020-02-31");
}

TEST(DayTest, DoubledDashesCountAsOne) {
    EXPECT_EQ(Day::decoded("2020--01---02"), Day(2020, 1, 2));
    EXPECT_EQ(Day::decoded("-2020-01-02-"), Day(2020, 1, 2));
}

TEST(DayTest, TodaysHeadingIsAWordInEveryLanguage) {
    EXPECT_EQ(Day(2020, 6, 10).displayText({2020, 6, 10}, english), "Today");
    EXPECT_EQ(Day(2020, 6, 10).displayText({2020, 6, 10}, german), "Today");
}

TEST(DayTest, AHeadingOfTheLastSixDaysHasItsWeekday) {
    const Day today(2020, 6, 10);
    EXPECT_EQ(Day(2020, 6, 9).displayText(today, english), "Tuesday June 9");
    EXPECT_EQ(Day(2020, 6, 4).displayText(today, english), "Thursday June 4");
    EXPECT_EQ(Day(2020, 6, 4).displayText(today, german), "Donnerstag Juni 4");
    // Over the end of a year too.
    EXPECT_EQ(Day(2019, 12, 31).displayText({2020, 1, 3}, english), "Tuesday December 31");
}

TEST(DayTest, AnOlderHeadingHasTheDateAndTheYearWhereItIsAnother) {
    const Day today(2020, 6, 10);
    EXPECT_EQ(Day(2020, 6, 3).displayText(today, english), "June 3");
    EXPECT_EQ(Day(2020, 1, 1).displayText(today, english), "January 1");
    EXPECT_EQ(Day(2019, 12, 31).displayText(today, english), "December 31, 2019");
    EXPECT_EQ(Day(2019, 3, 8).displayText(today, german), u"März 8, 2019"_qs);
    EXPECT_EQ(Day(2020, 3, 8).displayText(today, german), u"März 8"_qs);
    EXPECT_EQ(Day(999, 3, 8).displayText(today, english), "March 8, 0999");
    EXPECT_EQ(Day(2019, 12, 26).displayText({2020, 1, 2}, english), "December 26, 2019");
}

TEST(DayTest, AHeadingOfADayToComeHasTheDate) {
    EXPECT_EQ(Day(2020, 6, 11).displayText({2020, 6, 10}, english), "June 11");
    EXPECT_EQ(Day(2021, 1, 1).displayText({2020, 12, 31}, english), "January 1, 2021");
    EXPECT_EQ(Day(9999, 12, 31).displayText({2020, 6, 10}, english), "December 31, 9999");
}

TEST(DayTest, ADayTooManyForItsMonthIsOneOfTheNext) {
    EXPECT_EQ(Day(2021, 2, 31).date(QTimeZone::utc()), utc(2021, 3, 3));
    EXPECT_EQ(Day(2020, 2, 31).displayText({2020, 3, 2}, english), "Today");
    EXPECT_EQ(Day(0, 1, 1).date(QTimeZone::utc()), Day(1, 1, 1).date(QTimeZone::utc()) - 366 * 86400.0);
}

TEST(DayTest, ComponentsThatAreNoDayEndTheProcess) {
    EXPECT_DEATH(Day(2020, 13, 1).date(QTimeZone::utc()), "a day that no calendar has");
    EXPECT_DEATH(Day(2020, 1, 32).date(QTimeZone::utc()), "a day that no calendar has");
    EXPECT_DEATH(Day(2020, 0, 1).displayText({2020, 1, 1}), "a day that no calendar has");
    EXPECT_DEATH(Day(123456, 1, 1).date(QTimeZone::utc()), "a day that no calendar has");
}

}  // namespace
