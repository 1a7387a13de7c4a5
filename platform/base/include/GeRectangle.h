#pragma once

#include "VnExport.h"

#include <algorithm>

namespace Vn {

// A point of two coordinates.
template <class T>
struct VN_EXPORT GePoint {
    T x{};
    T y{};
    bool operator==(GePoint const&) const = default;
};

// An axis-aligned rectangle. The maxima are exclusive: it covers xmin <= x < xmax and
// ymin <= y < ymax, and it is empty when a maximum does not exceed its minimum. All empty
// rectangles compare equal.
template <class T>
struct VN_EXPORT GeRectangle {
    T xmin{};
    T xmax{};
    T ymin{};
    T ymax{};

    constexpr GeRectangle() = default;
    constexpr GeRectangle(T x0, T x1, T y0, T y1) : xmin(x0), xmax(x1), ymin(y0), ymax(y1) {}

    constexpr bool isEmpty() const { return !(xmin < xmax) || !(ymin < ymax); }
    constexpr T width() const { return isEmpty() ? T() : xmax - xmin; }
    constexpr T height() const { return isEmpty() ? T() : ymax - ymin; }
    constexpr bool contains(T x, T y) const {
        return xmin <= x && x < xmax && ymin <= y && y < ymax;
    }
    constexpr bool contains(GeRectangle const& r) const {
        return r.isEmpty() ||
               (xmin <= r.xmin && r.xmax <= xmax && ymin <= r.ymin && r.ymax <= ymax);
    }

    constexpr GeRectangle intersect(GeRectangle const& r) const {
        GeRectangle out(std::max(xmin, r.xmin), std::min(xmax, r.xmax), std::max(ymin, r.ymin),
                        std::min(ymax, r.ymax));
        return out.isEmpty() ? GeRectangle() : out;
    }
    // The smallest rectangle covering both; an empty side adds nothing.
    constexpr GeRectangle unite(GeRectangle const& r) const {
        if (isEmpty())
            return r.isEmpty() ? GeRectangle() : r;
        if (r.isEmpty())
            return *this;
        return GeRectangle(std::min(xmin, r.xmin), std::max(xmax, r.xmax), std::min(ymin, r.ymin),
                           std::max(ymax, r.ymax));
    }
    constexpr bool intersects(GeRectangle const& r) const { return !intersect(r).isEmpty(); }
    constexpr GeRectangle translated(T dx, T dy) const {
        return GeRectangle(xmin + dx, xmax + dx, ymin + dy, ymax + dy);
    }

    constexpr bool operator==(GeRectangle const& r) const {
        if (isEmpty() || r.isEmpty())
            return isEmpty() && r.isEmpty();
        return xmin == r.xmin && xmax == r.xmax && ymin == r.ymin && ymax == r.ymax;
    }
};

} // namespace Vn
