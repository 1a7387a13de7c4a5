#pragma once

#include "VnExport.h"

#include <algorithm>
#include <ostream>

namespace Vn {

// A half-open interval [first, second) of a totally ordered type. It is empty when second does
// not exceed first. Equality compares the two bounds as they are, so two empty intervals with
// different bounds differ: an interval is also a pair of indices.
template <class T>
struct VN_EXPORT GeInterval {
    T first{};
    T second{};

    constexpr GeInterval() = default;
    constexpr GeInterval(T f, T s) : first(f), second(s) {}

    constexpr bool isEmpty() const { return !(first < second); }
    constexpr T length() const { return isEmpty() ? T() : second - first; }
    constexpr bool contains(T v) const { return !(v < first) && v < second; }
    constexpr GeInterval intersect(GeInterval const& o) const {
        GeInterval r(std::max(first, o.first), std::min(second, o.second));
        return r.isEmpty() ? GeInterval() : r;
    }
    constexpr bool operator==(GeInterval const&) const = default;

    // "[ first, second )"
    void dump(std::ostream& os) const { os << "[ " << first << ", " << second << " )"; }
};

} // namespace Vn
