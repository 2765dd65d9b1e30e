#include "TranscriptKit/DayFinder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

namespace {

constexpr double secondsOfDay = 86400;
constexpr double firstInstant = -62135596800;  // 0001-01-01 00:00:00 UTC
constexpr double lastInstant = 253402300799;   // 9999-12-31 23:59:59 UTC

const std::chrono::sys_days firstDay = std::chrono::year(1) / 1 / 1;
const std::chrono::sys_days lastDay = std::chrono::year(9999) / 12 / 31;

}  // namespace

DayFinder::DayFinder(const QTimeZone& zone) : givenZone(zone) {}

const Day& DayFinder::day(Date instant) {
    const double unixSeconds = instant.toUnix();
    // Written so that what is not a number fails it.
    if (!(start <= unixSeconds && unixSeconds < end)) find(unixSeconds);
    return found;
}

void DayFinder::find(double unixSeconds) {
    const double instant = unixSeconds >= firstInstant ? std::min(unixSeconds, lastInstant) : firstInstant;
    const QTimeZone current = givenZone ? *givenZone : QTimeZone::systemTimeZone();
    if (!span.holds(instant) || !(current == zone)) {
        zone = current;
        span = ZoneSpan::at(instant, zone);
    }
    const double dayNumber = std::floor((instant + span.offset) / secondsOfDay);
    const auto civil =
        std::clamp(std::chrono::sys_days(std::chrono::days(static_cast<int>(dayNumber))), firstDay, lastDay);
    const std::chrono::year_month_day parts(civil);
    found = Day(int(parts.year()), unsigned(parts.month()), unsigned(parts.day()));
    start = std::max(span.start, dayNumber * secondsOfDay - span.offset);
    end = std::min(span.end, (dayNumber + 1) * secondsOfDay - span.offset);
    // Whatever lies further out counts as this day too.
    if (civil == firstDay) start = -std::numeric_limits<double>::infinity();
    if (civil == lastDay) end = std::numeric_limits<double>::infinity();
}
