#pragma once

#include "Rational.h"
#include "VnExport.h"

#include <compare>
#include <cstdint>

namespace Vn {

// A frame number of a clip, which a frame rate turns into seconds.
class VN_EXPORT DtTimeIndex {
public:
    constexpr DtTimeIndex() noexcept = default;
    constexpr explicit DtTimeIndex(std::int64_t index) noexcept : _index(index) {}

    constexpr std::int64_t getIndex() const noexcept { return _index; }
    // index / rate; a rate that is not positive raises ExBase.
    double toSeconds(Rational const& rate) const;
    auto operator<=>(DtTimeIndex const&) const = default;

private:
    std::int64_t _index = 0;
};

} // namespace Vn
