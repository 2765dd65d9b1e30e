#include "StateKit/Schedule.h"

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport/TestLoop.h"
#include <date/date.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The instant of a UTC time such as "2024-03-31 02:30:00".
Date utc(const std::string& text) {
    std::istringstream in(text);
    date::sys_seconds time;
    in >> date::parse("%F %T", time);
    EXPECT_FALSE(in.fail()) << text;
    return Date::fromUnix(static_cast<double>(time.time_since_epoch().count()));
}

/// The UTC time of an instant, to the nearest second.
std::string text(Date date) {
    return date::format("%F %T", date::sys_seconds(std::chrono::seconds(static_cast<long long>(date.toUnix() + 0.5))));
}

struct Alarm : SignalTarget {
    explicit Alarm(TestLoop& loop) : loop(loop) {}
    void ring() {
        times.push_back(text(loop.now()));
        if (then) then();
    }

    TestLoop& loop;
    std::vector<std::string> times;
    std::function<void()> then;
};

constexpr Seconds hour = 3600;
constexpr Seconds day = 24 * hour;

struct ScheduleTest : testing::Test {
    std::unique_ptr<TestLoop> loop;
    std::unique_ptr<Alarm> alarm;
    std::unique_ptr<Schedule> schedule;

    void begin(const std::string& now, TimeOfDay time, std::string timezone = "Europe/Zurich") {
        loop = std::make_unique<TestLoop>(utc(now));
        alarm = std::make_unique<Alarm>(*loop);
        schedule = std::make_unique<Schedule>(*loop, time, std::move(timezone));
        schedule->subscribe(*alarm, &Alarm::ring);
        schedule->start();
    }
    void TearDown() override {
        schedule.reset();
        alarm.reset();
    }
};

TEST_F(ScheduleTest, FiresEveryDayAtItsTime) {
    begin("2024-06-10 08:00:00", {.hour = 12, .minute = 30, .second = 15});
    loop->advance(3 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 10:30:15", "2024-06-11 10:30:15", "2024-06-12 10:30:15"));
}

TEST_F(ScheduleTest, ATimeThatHasPassedTodayIsTomorrows) {
    begin("2024-06-10 11:00:00", {.hour = 12});
    loop->advance(day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-11 10:00:00"));
}

TEST_F(ScheduleTest, ThePresentMomentIsNotAfterItself) {
    begin("2024-06-10 10:00:00", {.hour = 12});
    EXPECT_EQ(loop->untilNextTimer(), day);
}

TEST_F(ScheduleTest, DoesNothingBeforeItIsStarted) {
    TestLoop other;
    Schedule idle(other, {.hour = 12}, "Europe/Zurich");
    EXPECT_FALSE(other.hasTimers());
}

TEST_F(ScheduleTest, MidnightBelongsToTheNewDay) {
    begin("2024-06-10 12:00:00", {.hour = 0});
    loop->advance(2 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 22:00:00", "2024-06-11 22:00:00"));
}

TEST_F(ScheduleTest, AcrossTheChangeToSummerTimeItKeepsTheTimeOfDay) {
    begin("2024-03-29 12:00:00", {.hour = 8});
    loop->advance(3 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-03-30 07:00:00", "2024-03-31 06:00:00", "2024-04-01 06:00:00"));
}

TEST_F(ScheduleTest, ATimeThatTheChangeToSummerTimeSkipsFiresAtTheFirstInstantAfterIt) {
    begin("2024-03-29 12:00:00", {.hour = 2, .minute = 30});
    loop->advance(3 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-03-30 01:30:00", "2024-03-31 01:00:00", "2024-04-01 00:30:00"));
}

TEST_F(ScheduleTest, StartedAtTheChangeItselfASkippedTimeIsTomorrows) {
    begin("2024-03-31 01:00:00", {.hour = 2, .minute = 30});
    loop->advance(day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-04-01 00:30:00"));
}

TEST_F(ScheduleTest, ATimeThatTheChangeBackRepeatsFiresAtTheFirstOfTheTwoOnly) {
    begin("2024-10-25 12:00:00", {.hour = 2, .minute = 30});
    loop->advance(3 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-10-26 00:30:00", "2024-10-27 00:30:00", "2024-10-28 01:30:00"));
}

TEST_F(ScheduleTest, StartedBetweenTheTwoARepeatedTimeIsTomorrows) {
    begin("2024-10-27 01:00:00", {.hour = 2, .minute = 30});
    loop->advance(2 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-10-28 01:30:00"));
}

TEST_F(ScheduleTest, FiresOnceADayForAYearInZonesOfAllKinds) {
    for (const char* timezone : {"Europe/Zurich", "America/Santiago", "Australia/Lord_Howe", "Asia/Kathmandu",
                                 "Africa/Casablanca", "Pacific/Kiritimati", "America/St_Johns", "Etc/UTC"})
        for (const int clockHour : {0, 2, 12, 23}) {
            SCOPED_TRACE(std::string(timezone) + " " + std::to_string(clockHour));
            TearDown();
            begin("2024-01-01 12:00:00", {.hour = clockHour, .minute = 15}, timezone);
            loop->advance(365 * day);
            EXPECT_EQ(alarm->times.size(), 365u);
        }
}

TEST_F(ScheduleTest, AnUnknownZoneNeverFires) {
    for (const char* timezone : {"Europe/Nowhere", "", "../etc/passwd", "CET-1CEST,M3.5.0,M10.5.0/3,,"}) {
        TearDown();
        begin("2024-06-10 08:00:00", {.hour = 12}, timezone);
        EXPECT_FALSE(loop->hasTimers()) << timezone;
    }
}

TEST_F(ScheduleTest, ATimeThatNoDayHasNeverFires) {
    for (const TimeOfDay time : {TimeOfDay{24, 0, 0}, TimeOfDay{-1, 0, 0}, TimeOfDay{0, 60, 0}, TimeOfDay{0, 0, 60}}) {
        TearDown();
        begin("2024-06-10 08:00:00", time);
        EXPECT_FALSE(loop->hasTimers());
    }
}

TEST_F(ScheduleTest, StartingAgainDropsThePendingTimer) {
    begin("2024-06-10 08:00:00", {.hour = 12});
    schedule->start();
    schedule->start();
    loop->advance(day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 10:00:00"));
}

TEST_F(ScheduleTest, DestroyingItStopsIt) {
    begin("2024-06-10 08:00:00", {.hour = 12});
    schedule.reset();
    EXPECT_FALSE(loop->hasTimers());
    loop->advance(2 * day);
    EXPECT_THAT(alarm->times, IsEmpty());
}

TEST_F(ScheduleTest, MayBeDestroyedInsideAFiring) {
    begin("2024-06-10 08:00:00", {.hour = 12});
    alarm->then = [this] { schedule.reset(); };
    loop->advance(3 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 10:00:00"));
}

TEST_F(ScheduleTest, AClockThatIsSetBackPutsTheFiringOffToTheNewTime) {
    begin("2024-06-10 08:00:00", {.hour = 12});
    loop->setClock(utc("2024-06-10 07:00:00"));
    loop->advance(2 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 10:00:00", "2024-06-11 10:00:00"));
}

TEST_F(ScheduleTest, AClockThatIsSetForwardPastTheTimeFiresLateAndOnce) {
    begin("2024-06-10 08:00:00", {.hour = 12});
    loop->setClock(utc("2024-06-10 11:00:00"));
    loop->advance(2.5 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 13:00:00", "2024-06-11 10:00:00", "2024-06-12 10:00:00"));
}

TEST_F(ScheduleTest, AFractionOfASecondMakesNoSecondFiring) {
    begin("2024-06-10 08:00:00", {.hour = 12});
    loop->advance(0.123456789);
    schedule->start();
    loop->advance(2 * day);
    EXPECT_THAT(alarm->times, ElementsAre("2024-06-10 10:00:00", "2024-06-11 10:00:00"));
}

}  // namespace
