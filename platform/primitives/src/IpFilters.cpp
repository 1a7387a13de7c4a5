#include "IpFilters.h"
#include "Assertions.h"

#include <cmath>

namespace Vn {

IpFilters::Filter::~Filter() = default;

float IpFilters::Filter::scale(float radius, float ratio) noexcept {
    return ratio > 1.0f ? radius * ratio : radius;
}

IpFilters::Gaussian::Gaussian(float sigma) : _sigma(sigma) {
    VN_ASSERT(sigma > 0.0f);
}

float IpFilters::Gaussian::evaluate(float x) const {
    if (!(std::fabs(x) < getRadius()))
        return 0.0f;
    return std::exp(-(x * x) / (2.0f * _sigma * _sigma));
}

namespace {
// The zeros of J1, divided by pi, give the zeros of jinc.
constexpr double kJ1Zeros[] = {3.8317059702075123, 7.0155866698156187, 10.173468135062722};
constexpr double kPi = 3.141592653589793;
} // namespace

double IpFilters::Jinc::jinc(double x) {
    if (x == 0.0)
        return 1.0;
    double const t = kPi * std::fabs(x);
    return 2.0 * std::cyl_bessel_j(1.0, t) / t;
}

double IpFilters::Jinc::zero(int n) {
    VN_ASSERT(n >= 1 && n <= 3);
    return kJ1Zeros[n - 1] / kPi;
}

IpFilters::Jinc::Jinc(int lobes) : _radius(static_cast<float>(zero(lobes))) {
    VN_ASSERT(lobes >= 2 && lobes <= 3);
}

float IpFilters::Jinc::evaluate(float x) const {
    double const a = std::fabs(static_cast<double>(x));
    if (!(a < _radius))
        return 0.0f;
    return static_cast<float>(jinc(a) * jinc(a * zero(1) / _radius));
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
