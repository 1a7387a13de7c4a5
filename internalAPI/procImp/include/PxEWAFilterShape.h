#pragma once

#include "IpFilters.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

// A radial filter as a table indexed by squared distance, so that an elliptical walk needs no
// square root per pixel: entry i holds filter(sqrt(i r^2 / (IDX_SIZE - 1))).
class VN_EXPORT PxEWAFilterShape {
public:
    static constexpr int IDX_SIZE = 4096;

    // A radius below 0 takes the filter's own.
    PxEWAFilterShape(IpFilters::Filter const& filter, float radius);

    float getRadius() const noexcept { return _radius; }
    float operator[](int index) const noexcept { return _table[index]; }
    float const* getTable() const noexcept { return _table; }

    // The shared shapes, made when the processing package starts: a Gaussian of sigma 0.5 and
    // jincs of two and three lobes. Null outside the package's life.
    static UPtr<PxEWAFilterShape const> getGauss() noexcept;
    static UPtr<PxEWAFilterShape const> getJinc2() noexcept;
    static UPtr<PxEWAFilterShape const> getJinc3() noexcept;
    static void initialize();
    static void finalize() noexcept;

private:
    float _table[IDX_SIZE];
    float _radius;
};

} // namespace Vn
