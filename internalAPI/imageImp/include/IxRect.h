#pragma once

#include "GeRectangle.h"

namespace Vn {

// A half-open interval [min, max).
struct IxInterval {
    int min;
    int max;
    bool contains(int v) const noexcept { return min <= v && v < max; }
};

// A pixel rectangle with the accessors the image memory code speaks in.
class IxRect : public GeRectangle<int> {
public:
    IxRect() noexcept = default;
    IxRect(GeRectangle<int> const& r) noexcept : GeRectangle<int>(r) {}
    int getWidth() const noexcept { return width(); }
    int getHeight() const noexcept { return height(); }
    // The interval of axis 0 (x) or 1 (y).
    IxInterval getSlab(int axis) const noexcept {
        return axis == 0 ? IxInterval{xmin, xmax} : IxInterval{ymin, ymax};
    }
};

} // namespace Vn
