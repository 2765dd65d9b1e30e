#pragma once

#include "StateKit/Date.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/ZoneSpan.h"

#include <QTimeZone>

/// Finds the days of many instants.
///
/// An instant in the same day as the one before costs two comparisons, and most are. The zone is asked only
/// where its clocks may have been changed in between.
class DayFinder {
public:
    /// Uses the user's time zone, which is looked up at the first call of `day`.
    DayFinder() = default;
    explicit DayFinder(const QTimeZone& zone);

    /// Call this when the user may have changed the time zone: it is looked up again at the next instant outside
    /// the day found last. Does nothing if the constructor was given a zone.
    void askForZoneAgain() { isZoneKnown = isZoneGiven; }

    /// An instant before the year 1, or NaN, counts as the first day of that year; one after the year 9999 counts
    /// as the last day of that.
    const Day& day(Date instant);

private:
    void find(double instant);

    QTimeZone zone;
    bool isZoneGiven = false;
    bool isZoneKnown = false;
    ZoneSpan span;  // empty at first
    // The day found last, and the instants that are in it: `start` <= instant < `end`. An empty range at first.
    Day found;
    double start = 0;
    double end = 0;
};
