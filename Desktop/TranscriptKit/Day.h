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

/// Why a text is no day. `what()` is the whole text.
class DayError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A day of the calendar, in the Gregorian calendar of ISO 8601: what a transcript is divided by.
///
/// Text form, also when coded: "YYYY-MM-DD".
struct Day {
    std::int64_t year = 0;
    std::int64_t month = 0;
    std::int64_t day = 0;

    Day() = default;
    Day(std::int64_t year, std::int64_t month, std::int64_t day) : year(year), month(month), day(day) {}
    /// The day of an instant, in the user's time zone if none is given.
    explicit Day(Date instant);
    Day(Date instant, const QTimeZone& zone);

    /// The day of the present moment; with `isNightOwl`, of four hours before it, so that the early
    /// morning still counts as the day before.
    static Day today(Date now, bool isNightOwl = false);
    static Day today(Date now, const QTimeZone& zone, bool isNightOwl = false);

    /// The start of the day in the user's time zone (or the given one): midnight, or the first instant
    /// behind it where the clock skips midnight. Ends the process for components that are no day.
    Date date() const;
    Date date(const QTimeZone& zone) const;

    /// The heading: "Today"; from 1 to 6 days ago such as "Sunday November 15"; else "November 15", with
    /// the year where it is another one. Month and weekday in the locale's words.
    /// @param today  the day that it is now
    QString displayText(const Day& today, const QLocale& locale = QLocale()) const;

    /// "%04d-%02d-%02d": the description, and the coded form.
    std::string description() const;

    /// @throws DayError  the first of the checks that fails: the form, the numbers, the month, the day.
    ///                   The length of the month is not looked at.
    static Day decoded(std::string_view text);

    auto operator<=>(const Day&) const = default;
};

template <>
struct std::hash<Day> {
    std::size_t operator()(const Day& day) const {
        return std::hash<std::int64_t>()((day.year * 16 + day.month) * 32 + day.day);
    }
};
