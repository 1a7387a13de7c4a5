#pragma once

#include "VnExport.h"

#include <compare>
#include <cstdint>

namespace Vn {

// A point on a monotonic clock, for measuring how long something took. It never goes back when
// the wall clock is set; its origin is unspecified, so only differences mean anything.
class VN_EXPORT DtRefTime {
public:
    // The clock's origin.
    constexpr DtRefTime() noexcept = default;
    constexpr explicit DtRefTime(std::int64_t nanoseconds) noexcept : _ns(nanoseconds) {}
    static DtRefTime now() noexcept;

    std::int64_t getNanoseconds() const noexcept { return _ns; }
    // Seconds from earlier to this; negative when earlier is later.
    double secondsSince(DtRefTime const& earlier) const noexcept {
        return static_cast<double>(_ns - earlier._ns) * 1e-9;
    }
    auto operator<=>(DtRefTime const&) const = default;

private:
    std::int64_t _ns = 0;
};

} // namespace Vn
