#pragma once

#include "VnExport.h"

#include <cstdint>
#include <string>

namespace Vn {

// An exact fraction, always reduced, with a positive denominator. A zero denominator is an
// assertion failure; so is an overflow of 64 bits in arithmetic.
class VN_EXPORT Rational {
public:
    constexpr Rational() noexcept = default;
    Rational(std::int64_t num, std::int64_t den = 1);

    std::int64_t getNumerator() const noexcept { return _num; }
    std::int64_t getDenominator() const noexcept { return _den; }
    double toDouble() const noexcept {
        return static_cast<double>(_num) / static_cast<double>(_den);
    }
    std::string toString() const;
    // The form toString writes: "25" or "30000/1001", positive. Raises ExBase otherwise.
    static Rational parsePositive(std::string const& text);

    Rational operator+(Rational const& o) const;
    Rational operator-(Rational const& o) const;
    Rational operator*(Rational const& o) const;
    Rational operator/(Rational const& o) const;
    Rational operator-() const;
    bool operator==(Rational const& o) const noexcept = default;
    bool operator<(Rational const& o) const;
    bool operator<=(Rational const& o) const { return !(o < *this); }
    bool operator>(Rational const& o) const { return o < *this; }
    bool operator>=(Rational const& o) const { return !(*this < o); }

private:
    std::int64_t _num = 0;
    std::int64_t _den = 1;
};

} // namespace Vn
