#include "PxImageRegionIter.h"

namespace Vn {

PxImageRegionIter::PxImageRegionIter(GeRectangle<int> const& region,
                                     GeRectangle<int> const& excluded) noexcept {
    GeRectangle<int> const in = region.intersect(excluded);
    auto add = [this](GeRectangle<int> const& r) {
        if (!r.isEmpty())
            _parts[_count++] = r;
    };
    if (in.isEmpty()) {
        add(region);
        return;
    }
    add({region.xmin, region.xmax, region.ymin, in.ymin});
    add({region.xmin, in.xmin, in.ymin, in.ymax});
    add({in.xmax, region.xmax, in.ymin, in.ymax});
    add({region.xmin, region.xmax, in.ymax, region.ymax});
}

} // namespace Vn
