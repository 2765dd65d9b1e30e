#pragma once

#include <compare>
#include <cstddef>
#include <functional>

/// A length of time, in seconds.
using Seconds = double;

/// An instant: seconds since 2001-01-01 00:00:00 UTC, compared by its exact double.
///
/// JSON: a number, the same double.
struct Date {
    double sinceReference = 0;

    auto operator<=>(const Date&) const = default;
    Date operator+(Seconds interval) const { return {sinceReference + interval}; }
    Date operator-(Seconds interval) const { return {sinceReference - interval}; }
    Seconds operator-(Date other) const { return sinceReference - other.sinceReference; }

    /// The seconds from 1970-01-01 00:00:00 UTC to the reference instant.
    static constexpr double unixOffset = 978307200;
    static Date fromUnix(double seconds) { return {seconds - unixOffset}; }
    double toUnix() const { return sinceReference + unixOffset; }
};

template <>
struct std::hash<Date> {
    std::size_t operator()(Date date) const { return std::hash<double>()(date.sinceReference); }
};
