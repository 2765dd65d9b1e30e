#include "TranscriptKit/Day.h"

#include "Base/Check.h"
#include "Text/Text.h"
#include "TranscriptKit/DayFinder.h"
#include "TranscriptKit/ZoneSpan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <vector>

#include <QDate>

namespace {

constexpr Seconds nightOwlShift = 14400;
constexpr std::int64_t julianDayOf1970 = 2440588;

/// Days since 1970-01-01. A 31st of February is the 3rd of March, in a leap year the 2nd.
std::int64_t dayNumber(const Day& day) {
    check(day.year >= -9999 && day.year <= 9999 && day.month >= 1 && day.month <= 12 && day.day >= 1 && day.day <= 31,
          "a day that no calendar has");
    const std::chrono::sys_days first =
        std::chrono::year(static_cast<int>(day.year)) / std::chrono::month(static_cast<unsigned>(day.month)) / 1;
    return first.time_since_epoch().count() + day.day - 1;
}

/// Reads digits with an optional sign before them, `+` as well as `-`.
std::optional<std::int64_t> integer(std::string_view text) {
    if (text.size() > 1 && text.front() == '+') text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool hasCharacters(std::string_view text, std::size_t count) {
    return Text::prefix(text, count).size() == text.size() && Text::prefix(text, count - 1).size() < text.size();
}

}  // namespace

Day::Day(Date instant) : Day(DayFinder().day(instant)) {}

Day::Day(Date instant, const QTimeZone& zone) : Day(DayFinder(zone).day(instant)) {}

Day Day::today(Date now, bool isNightOwl) { return Day(isNightOwl ? now - nightOwlShift : now); }

Day Day::today(Date now, const QTimeZone& zone, bool isNightOwl) {
    return Day(isNightOwl ? now - nightOwlShift : now, zone);
}

Date Day::date() const { return date(QTimeZone::systemTimeZone()); }

Date Day::date(const QTimeZone& zone) const {
    constexpr double secondsOfDay = 86400;
    // Find the first instant whose clock shows this midnight or later. The search begins two days earlier, since
    // no zone is that far from UTC.
    const double midnight = static_cast<double>(dayNumber(*this)) * secondsOfDay;
    ZoneSpan span = ZoneSpan::at(midnight - 2 * secondsOfDay, zone);
    for (;;) {
        const double start = std::max(span.start, midnight - span.offset);
        if (span.holds(start)) return Date::fromUnix(start);
        span = ZoneSpan::at(span.end, zone);
    }
}

QString Day::displayText(const Day& today, const QLocale& locale) const {
    const std::int64_t number = dayNumber(*this);
    const std::int64_t daysAgo = dayNumber(today) - number;
    if (daysAgo == 0) return QStringLiteral("Today");
    const QDate date = QDate::fromJulianDay(number + julianDayOf1970);
    if (daysAgo >= 1 && daysAgo <= 6) return locale.toString(date, u"dddd MMMM d");
    return locale.toString(date, year == today.year ? u"MMMM d" : u"MMMM d, yyyy");
}

std::string Day::description() const {
    std::array<char, 80> text;
    const int length =
        std::snprintf(text.data(), text.size(), "%04" PRId64 "-%02" PRId64 "-%02" PRId64, year, month, day);
    return {text.data(), static_cast<std::size_t>(length)};
}

Day Day::decoded(std::string_view text) {
    std::vector<std::string_view> pieces;
    while (!text.empty() && pieces.size() < 4) {
        const std::size_t length = std::min(text.find('-'), text.size());
        if (length > 0) pieces.push_back(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    if (pieces.size() != 3 || !hasCharacters(pieces[0], 4) || !hasCharacters(pieces[1], 2) ||
        !hasCharacters(pieces[2], 2))
        throw DayError("Day encoding must be formatted like YYYY-MM-DD");
    const auto year = integer(pieces[0]), month = integer(pieces[1]), day = integer(pieces[2]);
    if (!year || !month || !day) throw DayError("Day could not be broken up into numeric values");
    if (*month < 1 || *month > 12) throw DayError("Day encoded month is out of valid range");
    if (*day < 1 || *day > 31) throw DayError("Day encoded day is out of valid range");
    return {*year, *month, *day};
}
