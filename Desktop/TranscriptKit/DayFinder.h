#pragma once

#include "StateKit/Date.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/ZoneSpan.h"

#include <QTimeZone>

/// Finds the days of many instants.
///
/// Instants that follow one another mostly lie in one day, which costs two comparisons; the zone is asked only
/// where its clocks may have been changed in between.
class DayFinder {
public:
    /// For the user's time zone, which is asked for when the first day is found.
    DayFinder() = default;
    explicit DayFinder(const QTimeZone& zone);

    /// The user may have another time zone by now: it is asked for again when an instant is not in the day
    /// found last. Does nothing where a zone was given.
    void askForZoneAgain() { isZoneKnown = isZoneGiven; }

    /// An instant before the year 1 counts as its first day, one behind the year 9999 as its last; what is not
    /// a number as the first.
    const Day& day(Date instant);

private:
    void find(double instant);

    QTimeZone zone;
    bool isZoneGiven = false;
    bool isZoneKnown = false;
    ZoneSpan span;  // empty at first
    // The day found last, and the instants that are in it: from `start`, before `end`. None at first.
    Day found;
    double start = 0;
    double end = 0;
};
