#pragma once

#include <chrono>
#include <compare>

namespace quillet {

/// A moment in time as seconds since 2001-01-01 00:00:00 UTC, the reference the library file uses
/// on every platform.
struct Date {
    double seconds = 0;

    /// The current moment.
    static Date now();

    /// The moment of a system clock time point.
    static Date fromTimePoint(std::chrono::system_clock::time_point point);

    /// This moment as a system clock time point (to the clock's resolution).
    std::chrono::system_clock::time_point timePoint() const;

    friend bool operator==(const Date&, const Date&) = default;
    friend std::partial_ordering operator<=>(const Date&, const Date&) = default;
};

} // namespace quillet
