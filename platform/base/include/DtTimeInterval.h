#pragma once

#include "DtTime.h"
#include "VnExport.h"

#include <cstdint>
#include <iosfwd>

namespace Vn {

// A span of time from start to end. It is empty when end is at or before start, and all empty
// spans are equal: what they cover, nothing, is the same.
class VN_EXPORT DtTimeInterval {
public:
    constexpr DtTimeInterval() noexcept = default;
    constexpr DtTimeInterval(DtTime start, DtTime end) noexcept : _start(start), _end(end) {}

    DtTime getStart() const noexcept { return _start; }
    DtTime getEnd() const noexcept { return _end; }
    bool isEmpty() const noexcept { return _end <= _start; }
    std::int64_t getDurationMicroseconds() const noexcept {
        return isEmpty() ? 0 : _end.getMicroseconds() - _start.getMicroseconds();
    }
    // start <= t < end
    bool contains(DtTime t) const noexcept { return _start <= t && t < _end; }
    DtTimeInterval intersect(DtTimeInterval const& o) const noexcept;

    bool operator==(DtTimeInterval const& o) const noexcept {
        return (isEmpty() && o.isEmpty()) || (_start == o._start && _end == o._end);
    }

    // "[ start, end ]", both in microseconds.
    void dump(std::ostream& os) const;

private:
    DtTime _start;
    DtTime _end;
};

} // namespace Vn
