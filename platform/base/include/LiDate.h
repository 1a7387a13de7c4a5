#pragma once

#include "VnExport.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Vn {

// A moment in UTC: whole seconds since 1970-01-01T00:00:00Z and the nanoseconds past them.
// Written and read as ISO 8601, "2026-03-01T09:30:00Z", with a fraction of up to nine digits
// when the nanoseconds are not 0.
class VN_EXPORT LiDate {
public:
    LiDate() = default;
    // Nanoseconds outside [0, 1e9) carry into the seconds.
    LiDate(std::int64_t seconds, std::int64_t nanoseconds);

    static LiDate now();
    // Raises ExBase naming the text when it is not such a date. An offset "+hh:mm" or
    // "-hh:mm" in place of "Z" is taken into account.
    static LiDate fromIso8601(std::string_view text);

    std::int64_t getSeconds() const noexcept { return _seconds; }
    std::int32_t getNanoseconds() const noexcept { return _nanoseconds; }
    std::string toIso8601() const;

    bool operator==(LiDate const&) const noexcept = default;
    std::strong_ordering operator<=>(LiDate const&) const noexcept = default;

private:
    std::int64_t _seconds = 0;
    std::int32_t _nanoseconds = 0;
};

VN_EXPORT std::ostream& operator<<(std::ostream& os, LiDate const& d);

} // namespace Vn
