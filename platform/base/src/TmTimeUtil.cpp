#include "TmTimeUtil.h"
#include "ExBase.h"

#include <cmath>

namespace Vn {

void TmTimeUtil::checkRate(Rational const& rate) {
    if (rate.getNumerator() <= 0)
        VN_THROW_MSG(ExBase, "TmTimeUtil: the frame rate " + rate.toString() + " has no frames");
}

double TmTimeUtil::getSecondsFromDtTime(std::int64_t index, Rational const& rate) {
    checkRate(rate);
    return static_cast<double>(index) * static_cast<double>(rate.getDenominator()) /
           static_cast<double>(rate.getNumerator());
}

std::int64_t TmTimeUtil::getDtTimeFromSeconds(double seconds, Rational const& rate) {
    checkRate(rate);
    if (!std::isfinite(seconds))
        VN_THROW_MSG(ExBase,
                     "TmTimeUtil: a time of " + std::to_string(seconds) + " seconds has no frame");
    double const frames = seconds * static_cast<double>(rate.getNumerator()) /
                          static_cast<double>(rate.getDenominator());
    // Beyond 2^62 frames no rate is meaningful; refuse rather than overflow.
    if (std::fabs(frames) > 4.6e18)
        VN_THROW_MSG(ExBase, "TmTimeUtil: " + std::to_string(seconds) +
                                 " seconds is out of reach at " + rate.toString());
    return std::llround(frames);
}

double TmTimeUtil::getFrameDuration(Rational const& rate) {
    checkRate(rate);
    return static_cast<double>(rate.getDenominator()) / static_cast<double>(rate.getNumerator());
}

} // namespace Vn
