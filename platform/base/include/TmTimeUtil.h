#pragma once

#include "Rational.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// Seconds and whole-frame time indices at a frame rate. A rate whose numerator is not above 0
// raises ExBase: it has no frames.
class VN_EXPORT TmTimeUtil {
public:
    // The two ends of the time axis: a year of seconds either way.
    static constexpr double getNegInfinity() noexcept { return -31536000.0; }
    static constexpr double getPosInfinity() noexcept { return 31536000.0; }
    static constexpr bool isInfinite(double t) noexcept {
        return t <= getNegInfinity() || t >= getPosInfinity();
    }

    // The seconds of a time index: index * denominator / numerator, in double, in that order.
    static double getSecondsFromDtTime(std::int64_t index, Rational const& rate);
    // The time index nearest to a time in seconds.
    static std::int64_t getDtTimeFromSeconds(double seconds, Rational const& rate);
    // The duration of one frame in seconds.
    static double getFrameDuration(Rational const& rate);
    // Raises unless the rate has frames.
    static void checkRate(Rational const& rate);
};

} // namespace Vn
