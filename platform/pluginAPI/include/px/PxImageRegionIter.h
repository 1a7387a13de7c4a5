#pragma once

#include "GeRectangle.h"
#include "VnExport.h"

namespace Vn {

// Walks the parts of a region that lie outside another rectangle, as at most four disjoint
// bands: below, left, right and above the part they share.
class VN_EXPORT PxImageRegionIter {
public:
    PxImageRegionIter(GeRectangle<int> const& region, GeRectangle<int> const& excluded) noexcept;

    bool isDone() const noexcept { return _index >= _count; }
    GeRectangle<int> const& operator*() const noexcept { return _parts[_index]; }
    PxImageRegionIter& operator++() noexcept {
        ++_index;
        return *this;
    }

private:
    GeRectangle<int> _parts[4];
    int _count = 0;
    int _index = 0;
};

} // namespace Vn
