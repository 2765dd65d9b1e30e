#include "TranscriptKit/ZoneSpan.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <limits>

ZoneSpan ZoneSpan::at(double unixSeconds, const QTimeZone& zone) {
    constexpr double forever = std::numeric_limits<double>::infinity();
    ZoneSpan span{.start = -forever, .end = forever, .offset = 0};
    if (!zone.isValid()) return span;
    // Clocks are changed at whole seconds.
    const auto instant = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(std::floor(unixSeconds)), Qt::UTC);
    span.offset = zone.offsetFromUtc(instant);
    if (!zone.hasTransitions()) return span;
    // `previousTransition` leaves out the instant itself, which may be the transition: ask from a second later.
    // `nextTransition` leaves it out as well, as it should.
    const QTimeZone::OffsetData previous = zone.previousTransition(instant.addSecs(1));
    if (previous.atUtc.isValid()) span.start = static_cast<double>(previous.atUtc.toSecsSinceEpoch());
    const QTimeZone::OffsetData next = zone.nextTransition(instant);
    if (next.atUtc.isValid()) span.end = static_cast<double>(next.atUtc.toSecsSinceEpoch());
    return span;
}

double ZoneSpan::unixSecondsWithinReach(Date instant) {
    constexpr double first = -62135596800;  // 0001-01-01 00:00:00
    constexpr double last = 253402300799;   // 9999-12-31 23:59:59
    const double unixSeconds = instant.toUnix();
    // NaN fails this comparison and so becomes `first`.
    return unixSeconds >= first ? std::min(unixSeconds, last) : first;
}
