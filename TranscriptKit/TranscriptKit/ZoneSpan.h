#pragma once

#include "StateKit/Date.h"

#include <cstdint>

#include <QTimeZone>

/// A stretch of time in which the clocks of a zone are not changed.
///
/// Within a span, clock time is found by adding the offset, without asking the zone's rules, which costs
/// microseconds.
struct ZoneSpan {
    // Seconds since 1970-01-01 UTC: from `start`, up to but not including `end`. Infinite if the zone has no
    // change before, or after.
    double start = 0;
    double end = 0;
    std::int32_t offset = 0;  // of the clocks, in seconds east of UTC

    /// The span that holds an instant. A zone that is not valid counts as UTC.
    /// @param unixSeconds  within some 10,000 years
    static ZoneSpan at(double unixSeconds, const QTimeZone& zone);

    /// An instant in seconds since 1970-01-01 UTC, clamped to the years 1 to 9999 (of UTC), which calendars can
    /// handle: a date from a damaged file may lie anywhere. NaN becomes the first instant.
    static double unixSecondsWithinReach(Date instant);

    bool holds(double unixSeconds) const { return start <= unixSeconds && unixSeconds < end; }
};
