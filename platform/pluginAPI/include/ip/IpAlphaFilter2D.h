#pragma once

#include "GeRectangle.h"
#include "OPtr.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class IpAlphaFilter1D;
class IxReadGuard;
class IxWriteGuard;

// A separable filter of alpha tiles: a filter across, then one down. The sources are read as
// alpha, padded beyond them with the first tile's fill alpha.
class VN_EXPORT IpAlphaFilter2D {
public:
    IpAlphaFilter2D(OPtr<IpAlphaFilter1D> across, OPtr<IpAlphaFilter1D> down);
    virtual ~IpAlphaFilter2D();

    // Writes the pixels of region (the destination's whole region when empty) that dst holds.
    // Checks for cancellation between rows.
    void filter(Vector<IxReadGuard> const& sources, IxWriteGuard const& dst,
                GeRectangle<int> const& region = {}) const;

private:
    OPtr<IpAlphaFilter1D> _across;
    OPtr<IpAlphaFilter1D> _down;
};

// The Gaussian feather of radius x across and y down.
class VN_EXPORT IpFeatherFilter2D final : public IpAlphaFilter2D {
public:
    IpFeatherFilter2D(float x, float y);
    ~IpFeatherFilter2D() override;
};

// Writes into the pixels of region that dst holds the colour of rgb with the alpha of alpha;
// both are read padded with their fill colours. dst's fill colour becomes rgb's with alpha's
// alpha.
VN_EXPORT void ipCombineRGBWithA(IxWriteGuard& dst, IxReadGuard const& rgb,
                                 IxReadGuard const& alpha, GeRectangle<int> const& region);

} // namespace Vn
