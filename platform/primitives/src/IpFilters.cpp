#include "IpFilters.h"

#include <cmath>

namespace Vn {

IpFilters::Filter::~Filter() = default;

float IpFilters::Filter::scale(float radius, float ratio) noexcept {
    return ratio > 1.0f ? radius * ratio : radius;
}

Lanczos3Filter::~Lanczos3Filter() = default;

namespace {
// sin(pi t) / (pi t) in single precision, with pi t rounded once from double.
float sinc(float t) {
    if (t == 0.0f)
        return 1.0f;
    float const x = static_cast<float>(static_cast<double>(t) * 3.141592653589793);
    return std::sin(x) / x;
}
} // namespace

float Lanczos3Filter::evaluate(float x) const {
    float const a = std::fabs(x);
    if (!(3.0f > a))
        return 0.0f;
    // The window's third is the float nearest to it, kept so that results match bit for bit.
    return sinc(a) * sinc(a * 0.33333334f);
}

} // namespace Vn
