#include "TranscriptKit/DayFinder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

namespace {

constexpr double secondsOfDay = 86400;

const std::chrono::sys_days firstDay = std::chrono::year(1) / 1 / 1;
const std::chrono::sys_days lastDay = std::chrono::year(9999) / 12 / 31;

}  // namespace

DayFinder::DayFinder(const QTimeZone& zone) : zone(zone), isZoneGiven(true), isZoneKnown(true) {}

const Day& DayFinder::day(Date instant) {
    const double unixSeconds = instant.toUnix();
    // Write the condition as a negation, so that NaN gets to `find`.
    if (!(start <= unixSeconds && unixSeconds < end)) find(ZoneSpan::unixSecondsWithinReach(instant));
    return found;
}

void DayFinder::find(double instant) {
    if (!isZoneKnown) {
        zone = QTimeZone::systemTimeZone();
        isZoneKnown = true;
        span = ZoneSpan();
    }
    if (!span.holds(instant)) span = ZoneSpan::at(instant, zone);
    const double dayNumber = std::floor((instant + span.offset) / secondsOfDay);
    const auto civil =
        std::clamp(std::chrono::sys_days(std::chrono::days(static_cast<int>(dayNumber))), firstDay, lastDay);
    const std::chrono::year_month_day parts(civil);
    found = Day(int(parts.year()), unsigned(parts.month()), unsigned(parts.day()));
    start = std::max(span.start, dayNumber * secondsOfDay - span.offset);
    end = std::min(span.end, (dayNumber + 1) * secondsOfDay - span.offset);
    // All instants before the first day, or after the last, count as that day too.
    if (civil == firstDay) start = -std::numeric_limits<double>::infinity();
    if (civil == lastDay) end = std::numeric_limits<double>::infinity();
}
