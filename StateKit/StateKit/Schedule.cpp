#include "StateKit/Schedule.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include <date/date.h>
#include <date/tz.h>

namespace {

using std::chrono::duration;
using std::chrono::system_clock;

using SystemSeconds = date::sys_time<std::chrono::seconds>;

/// The instant at which this day of the zone has this time, or the one that replaces it (see `Schedule`).
SystemSeconds occurrence(const date::time_zone& zone, date::local_days day, const TimeOfDay& time) {
    const date::local_seconds local =
        day + std::chrono::hours(time.hour) + std::chrono::minutes(time.minute) + std::chrono::seconds(time.second);
    const date::local_info info = zone.get_info(local);
    // A time that the zone skips is replaced by the change itself, which is the first instant after it. Of a
    // time that the zone repeats, the first occurrence has the offset from before the change.
    if (info.result == date::local_info::nonexistent) return info.second.begin;
    return SystemSeconds(local.time_since_epoch() - info.first.offset);
}

/// The first occurrence after an instant; nothing if the zone is unknown, or if no day has such a time.
std::optional<Date> nextOccurrence(Date after, const TimeOfDay& time, const std::string& timezone) {
    if (time.hour < 0 || time.hour > 23 || time.minute < 0 || time.minute > 59 || time.second < 0 || time.second > 59)
        return {};
    const date::time_zone* zone = nullptr;
    try {
        zone = date::locate_zone(timezone);
    } catch (const std::runtime_error&) {
        return {};
    }
    const auto now = date::floor<std::chrono::seconds>(
        std::chrono::time_point<system_clock, duration<double>>(duration<double>(after.toUnix())));
    const date::local_days today = date::floor<date::days>(zone->to_local(now));
    // Begin with yesterday, whose occurrence may have been moved into today by a change of the zone. Within
    // two days there is an occurrence, except in a zone that leaves out a whole day, so look one day further.
    for (date::local_days day = today - date::days(1); day <= today + date::days(3); day += date::days(1)) {
        const Date found = Date::fromUnix(static_cast<double>(occurrence(*zone, day, time).time_since_epoch().count()));
        if (found > after) return found;
    }
    return {};
}

}  // namespace

Schedule::Schedule(MainLoop& loop, TimeOfDay timeOfDay, std::string timezone)
    : loop(loop), timeOfDay(timeOfDay), timezone(std::move(timezone)), signal(loop) {}

void Schedule::start() {
    timer.reset();
    due = nextOccurrence(loop.now(), timeOfDay, timezone);
    if (due) arm();
}

void Schedule::arm() {
    timer = std::make_unique<Timer>(loop, *due - loop.now(), [weak = Weak<Schedule>(this)] {
        if (Schedule* schedule = weak.get()) schedule->fire();
    });
}

void Schedule::fire() {
    // A timer counts seconds, and the clock may have been set back meanwhile. If the time of day is still
    // ahead by the clock, wait for it: firing now would mean firing twice that day.
    if (loop.now() < *due) {
        start();
        return;
    }
    const Weak<Schedule> self(this);
    signal.send();
    if (self) start();
}
