#pragma once

#include "PxEWAFilterShape.h"
#include "PxTextureSampler.h"

namespace Vn {

// Elliptical weighted average: the pixels under the ellipse that a footprint makes, weighted
// by a radial filter table, walked incrementally in fixed point.
class VN_EXPORT PxEWASampler final : public PxTextureSampler {
public:
    PxEWASampler(PxNodePtr<PxImageProtocol const> const& node, PxTimeScaleContext const& context,
                 IxPixelFormat const& format, SdTextureParams const& params,
                 UPtr<PxEWAFilterShape const> shape);
    PxEWASampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                 SdTextureParams const& params, UPtr<PxEWAFilterShape const> shape);

    // Integer centres are image pixels; the footprint is in pixels too.
    // Axis-aligned footprint of du by dv.
    Color sample(int x, int y, float du, float dv) const override;
    // Footprint by its Jacobian (a, b; c, d).
    Color sample(int x, int y, float a, float b, float c, float d) const override;
    // Footprint by its covariance.
    Color sample(int x, int y, float p, float s, float q) const override;
    Color sample(int x, int y, GeLinearMatrix2<float> const& jacobian) const override;
    // Positions and footprints in sampling space, through the position matrix.
    Color sample(GePoint<double> const& p, GeLinearMatrix2<double> const& jacobian) const override;
    Color sample(GePoint<double> const& p, GeLinearMatrix2<float> const& jacobian) const override;
    void sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                   GeLinearMatrix2<float> const& jacobian, Color* out) const override;

    float getFootprintScale() const noexcept { return _k; }
    float getMinEigenvalue() const noexcept { return _minEigen; }
    float getMaxEigenvalue() const noexcept { return _maxEigen; }

private:
    void init(SdTextureParams const& params);
    template <class M>
    Color samplePoint(GePoint<double> const& p, M const& j) const;
    Color sampleCovariance(int x, int y, float p, float s, float q) const;
    // Sums the ellipse's pixels at weights of the table and makes the colour straight.
    template <class Centre>
    Color walk(float p, float s, float q, Centre cx, Centre cy) const;

    float _k = 0.0f;
    float _minEigen = 0.0f;
    float _maxEigen = 0.0f;
    PxEWAFilterShape const* _shape;
    float _lin[4]; // m[0], m[3], m[1], m[4] of the position matrix
};

} // namespace Vn
