#include "library/Date.h"

#include <cmath>

namespace quillet {
namespace {

using Clock = std::chrono::system_clock;

// 2001-01-01 00:00:00 UTC, as Unix time.
constexpr std::chrono::seconds referenceFromUnixEpoch{978307200};

const Clock::time_point reference{
    std::chrono::duration_cast<Clock::duration>(referenceFromUnixEpoch)};

} // namespace

Date Date::now() {
    return fromTimePoint(Clock::now());
}

Date Date::fromTimePoint(Clock::time_point point) {
    // Whole seconds and the remainder are converted separately: the clock's tick count since the
    // reference does not fit a double's mantissa, so converting it at once would round the
    // fraction away.
    auto since = point - reference;
    auto whole = std::chrono::floor<std::chrono::seconds>(since);
    auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(since - whole);
    return Date{static_cast<double>(whole.count()) + static_cast<double>(rest.count()) / 1e9};
}

Clock::time_point Date::timePoint() const {
    // Values this far out only come from damaged files; the cast below would overflow on them.
    constexpr double limit = 1e11;
    if (!std::isfinite(seconds) || std::fabs(seconds) > limit) {
        return reference;
    }
    double whole = std::floor(seconds);
    auto nanos = std::llround((seconds - whole) * 1e9);
    return reference + std::chrono::seconds(static_cast<long long>(whole)) +
           std::chrono::duration_cast<Clock::duration>(std::chrono::nanoseconds(nanos));
}

} // namespace quillet
