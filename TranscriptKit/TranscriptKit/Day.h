#pragma once

#include "StateKit/Date.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <QLocale>
#include <QString>
#include <QTimeZone>

/// Says why a text is no day; `what()` is the complete message.
class DayError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A day in the Gregorian calendar of ISO 8601. Transcripts are divided into days.
///
/// Text form, also when coded: "YYYY-MM-DD".
struct Day {
    std::int64_t year = 0;
    std::int64_t month = 0;
    std::int64_t day = 0;

    Day() = default;
    Day(std::int64_t year, std::int64_t month, std::int64_t day) : year(year), month(month), day(day) {}
    /// The day of an instant, in the user's time zone if none is given. A date from a damaged file may lie
    /// anywhere: one before the year 1 gives the first day of that year, one after 9999 the last day of that.
    explicit Day(Date instant);
    Day(Date instant, const QTimeZone& zone);

    /// The day of `now`; with `isNightOwl`, the day of four hours before, so that the early morning still
    /// counts as the day before.
    static Day today(Date now, bool isNightOwl = false);
    static Day today(Date now, const QTimeZone& zone, bool isNightOwl = false);

    /// The start of the day in the user's time zone (or the given one): midnight, or the first instant
    /// after it where the clock skips midnight. A day beyond the end of its month is taken as one of the next
    /// month; any other components that are no day (a month 13, a year beyond 9999) end the process.
    Date date() const;
    Date date(const QTimeZone& zone) const;

    /// The heading: "Today"; for 1 to 6 days ago "Sunday November 15"; else "November 15", with the year added
    /// if it is not that of `today`. Month and weekday are in the locale's words. Components that are no day are
    /// treated as in `date`.
    /// @param today  the day that it is now
    QString displayText(const Day& today, const QLocale& locale = QLocale()) const;

    /// The text form, made with "%04d-%02d-%02d". It is also the coded form.
    std::string description() const;

    /// Reads the text form. Several "-" in a row count as one.
    /// @throws DayError  for the first check that fails: the form, the numbers, the month, the day.
    ///                   The length of the month is not checked.
    [[nodiscard]] static Day decoded(std::string_view text);

    auto operator<=>(const Day&) const = default;
};

template <>
struct std::hash<Day> {
    std::size_t operator()(const Day& day) const {
        const auto part = [](std::int64_t value) { return static_cast<std::uint64_t>(value); };
        return std::hash<std::uint64_t>()((part(day.year) * 16 + part(day.month)) * 32 + part(day.day));
    }
};
