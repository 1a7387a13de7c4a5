#include "PxValidityInterval.h"
#include "Assertions.h"

#include <algorithm>
#include <cmath>

namespace Vn {

PxValidityInterval const PxValidityInterval::FULL{kNegInfinity, kPosInfinity};
PxValidityInterval const PxValidityInterval::EMPTY{kPosInfinity, kNegInfinity};

PxValidityInterval PxValidityInterval::intersect(PxValidityInterval const& o) const noexcept {
    return PxValidityInterval(std::max(_low, o._low), std::min(_high, o._high));
}

namespace {
bool isInfinite(double t) {
    return t <= PxValidityInterval::kNegInfinity || t >= PxValidityInterval::kPosInfinity;
}
} // namespace

PxValidityInterval PxValidityInterval::shifted(double dt) const noexcept {
    return PxValidityInterval(isInfinite(_low) ? _low : _low + dt,
                              isInfinite(_high) ? _high : _high + dt);
}

PxValidityInterval PxValidityInterval::getDiscreteInterval(Rational const& rate) const {
    VN_ASSERT(rate.getNumerator() > 0);
    if (isEmpty())
        return EMPTY;
    // Seconds to frames: t * numerator / denominator.
    auto toFrames = [&](double t) {
        return t * static_cast<double>(rate.getNumerator()) /
               static_cast<double>(rate.getDenominator());
    };
    double const low = isInfinite(_low) ? _low : std::ceil(toFrames(_low));
    double const high = isInfinite(_high) ? _high : std::ceil(toFrames(_high));
    return PxValidityInterval(low, high);
}

} // namespace Vn
