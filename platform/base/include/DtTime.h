#pragma once

#include "VnExport.h"

#include <compare>
#include <cstdint>
#include <string>

namespace Vn {

// A point in wall-clock time, in microseconds since 1970-01-01 UTC.
class VN_EXPORT DtTime {
public:
    constexpr DtTime() noexcept = default;
    constexpr explicit DtTime(std::int64_t microseconds) noexcept : _us(microseconds) {}
    static DtTime now();

    std::int64_t getMicroseconds() const noexcept { return _us; }
    double secondsSince(DtTime const& earlier) const noexcept {
        return static_cast<double>(_us - earlier._us) * 1e-6;
    }
    // "YYYY-MM-DD HH:MM:SS" in UTC.
    std::string toString() const;
    auto operator<=>(DtTime const&) const = default;

private:
    std::int64_t _us = 0;
};

} // namespace Vn
