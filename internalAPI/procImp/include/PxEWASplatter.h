#pragma once

#include "GeLinearMatrix.h"
#include "IxGuardBase.h"
#include "PxEWAFilterShape.h"
#include "SdTexture.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

class PxRequestMgr;

// The inverse of the EWA sampler: scatters colours over elliptical footprints of a target tile,
// each splat's weights summing to 1 over its whole ellipse, and normalises when destroyed.
// Accumulation is in float RGBA whatever the target's format. One thread per splatter.
class VN_EXPORT PxEWASplatter {
public:
    using Color = CoRgbaColorTyped<float>;

    // blur scales the footprints; minimum and maximum bound them, in filter radii.
    PxEWASplatter(IxWriteGuard const& target, UPtr<PxEWAFilterShape const> shape, float blur,
                  float minimum, float maximum);
    PxEWASplatter(PxEWASplatter const&) = delete;
    PxEWASplatter& operator=(PxEWASplatter const&) = delete;
    // The normalising pass into the target; skipped while an exception is in flight. May raise
    // the cancellation of the current request.
    ~PxEWASplatter() noexcept(false);

    // A colour at a centre with a footprint by its covariance P, S, Q.
    void splatter(Color const& color, GePoint<float> const& centre, float p, float s,
                  float q) const;
    // A footprint by its Jacobian (J0, J1; J2, J3).
    void splatter(Color const& color, GePoint<float> const& centre,
                  GeLinearMatrix2<float> const& jacobian) const;
    void splatter(Color const& color, GePoint<float> const& centre,
                  GeLinearMatrix2<double> const& jacobian) const;

    // The summed weights so far, ALPHA FLOAT32 over the target's region.
    IxWriteGuard const& getWeights() const noexcept { return _weights; }

private:
    void checkCancelled() const;
    void normalize() const;

    IxWriteGuard _target;
    IxWriteGuard _colors;
    IxWriteGuard _weights;
    GeRectangle<int> _region;
    PxRequestMgr* _mgr;
    float _k;
    float _minEigen;
    float _maxEigen;
    PxEWAFilterShape const* _shape;
    int _exceptions;
};

} // namespace Vn
