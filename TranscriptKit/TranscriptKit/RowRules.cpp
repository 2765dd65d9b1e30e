#include "TranscriptKit/RowRules.h"

#include "TranscriptKit/ZoneSpan.h"

#include <variant>

#include <QDateTime>

#include <cmath>

namespace {

constexpr Seconds blockGap = 300;

}  // namespace

RowLook RowRules::look(const Transcript& transcript, std::size_t index) {
    const auto* text = std::get_if<Transcript::Text>(&transcript.items[index]);
    if (text == nullptr) return {};
    for (std::size_t before = index; before-- > 0;) {
        const auto* earlier = std::get_if<Transcript::Text>(&transcript.items[before]);
        if (earlier == nullptr) continue;
        const bool showTime = text->time - earlier->time >= blockGap;
        return {.showTime = showTime, .showEmoji = showTime || !(text->author == earlier->author)};
    }
    return {.showTime = true, .showEmoji = true};
}

QString RowRules::timeText(Date time) {
    const auto seconds = static_cast<qint64>(std::floor(ZoneSpan::unixSecondsWithinReach(time)));
    const QTime clock = QDateTime::fromSecsSinceEpoch(seconds).time();
    const int hour = clock.hour() % 12 == 0 ? 12 : clock.hour() % 12;
    return QStringLiteral("%1:%2").arg(hour).arg(clock.minute(), 2, 10, QLatin1Char('0'));
}
