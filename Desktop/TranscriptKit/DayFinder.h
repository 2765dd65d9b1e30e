#pragma once

#include "StateKit/Date.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/ZoneSpan.h"

#include <optional>

#include <QTimeZone>

/// Finds the days of many instants.
///
/// Instants that follow one another mostly lie in one day, which costs two comparisons; the zone is asked only
/// where its clocks may have been changed in between.
class DayFinder {
public:
    /// For the time zone that the user has at each new day.
    DayFinder() = default;
    explicit DayFinder(const QTimeZone& zone);

    /// An instant before the year 1 counts as its first day, one behind the year 9999 as its last; what is not
    /// a number as the first.
    const Day& day(Date instant);

private:
    void find(double instant);

    std::optional<QTimeZone> givenZone;
    QTimeZone zone;
    ZoneSpan span;  // empty at first
    // The day found last, and the instants that are in it: from `start`, before `end`. None at first.
    Day found;
    double start = 0;
    double end = 0;
};
