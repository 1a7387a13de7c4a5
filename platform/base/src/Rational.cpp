#include "Rational.h"
#include "Assertions.h"
#include "ExBase.h"

#include <cerrno>
#include <cstdlib>

#include <numeric>

namespace Vn {

namespace {
__extension__ typedef __int128 Wide;

std::int64_t checkedMul(std::int64_t a, std::int64_t b) {
    std::int64_t r;
    bool const overflow = __builtin_mul_overflow(a, b, &r);
    VN_ASSERT(!overflow);
    return r;
}
std::int64_t checkedAdd(std::int64_t a, std::int64_t b) {
    std::int64_t r;
    bool const overflow = __builtin_add_overflow(a, b, &r);
    VN_ASSERT(!overflow);
    return r;
}
} // namespace

Rational::Rational(std::int64_t num, std::int64_t den) {
    VN_ASSERT(den != 0);
    VN_ASSERT(num != INT64_MIN && den != INT64_MIN);
    if (den < 0) {
        num = -num;
        den = -den;
    }
    std::int64_t const g = std::gcd(num, den);
    _num = num / g;
    _den = den / g;
}

std::string Rational::toString() const {
    return _den == 1 ? std::to_string(_num) : std::to_string(_num) + "/" + std::to_string(_den);
}

Rational Rational::parsePositive(std::string const& text) {
    char const* const begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    long long const num = std::strtoll(begin, &end, 10);
    long long den = 1;
    bool ok = end != begin && errno == 0;
    if (ok && *end == '/') {
        char const* const d = end + 1;
        den = std::strtoll(d, &end, 10);
        ok = end != d && errno == 0;
    }
    if (!ok || *end != '\0' || num <= 0 || den <= 0 || !(text[0] >= '0' && text[0] <= '9'))
        VN_THROW_MSG(ExBase, "\"" + text.substr(0, 64) +
                                 "\" is not a positive number like 25 or "
                                 "30000/1001");
    return Rational(num, den);
}

Rational Rational::operator+(Rational const& o) const {
    std::int64_t const g = std::gcd(_den, o._den);
    std::int64_t const den = checkedMul(_den / g, o._den);
    return Rational(checkedAdd(checkedMul(_num, o._den / g), checkedMul(o._num, _den / g)), den);
}

Rational Rational::operator-(Rational const& o) const {
    return *this + -o;
}
Rational Rational::operator-() const {
    return Rational(-_num, _den);
}

Rational Rational::operator*(Rational const& o) const {
    // Cross-reduce first so that products of reduced fractions stay small.
    std::int64_t const g1 = std::gcd(_num, o._den);
    std::int64_t const g2 = std::gcd(o._num, _den);
    return Rational(checkedMul(_num / g1, o._num / g2), checkedMul(_den / g2, o._den / g1));
}

Rational Rational::operator/(Rational const& o) const {
    VN_ASSERT(o._num != 0);
    return *this * Rational(o._den, o._num);
}

bool Rational::operator<(Rational const& o) const {
    Wide const l = static_cast<Wide>(_num) * o._den;
    Wide const r = static_cast<Wide>(o._num) * _den;
    return l < r;
}

} // namespace Vn
