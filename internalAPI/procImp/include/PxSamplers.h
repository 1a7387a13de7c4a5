#pragma once

#include "PxTextureSampler.h"

namespace Vn {

// The plain filters. They ignore the footprint; positions go through the position matrix.

// The pixel under the position, as stored.
class VN_EXPORT PxNearestSampler final : public PxTextureSampler {
public:
    PxNearestSampler(PxNodePtr<PxImageProtocol const> const& node,
                     PxTimeScaleContext const& context, IxPixelFormat const& format,
                     SdTextureParams const& params);
    PxNearestSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                     SdTextureParams const& params);
    Color sample(GePoint<double> const& p, GeLinearMatrix2<double> const& jacobian) const override;
    Color sample(GePoint<double> const& p, GeLinearMatrix2<float> const& jacobian) const override;
    void sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                   GeLinearMatrix2<float> const& jacobian, Color* out) const override;

private:
    using PxTextureSampler::sample;
    Color at(GePoint<double> const& p) const;
};

// Bilinear on premultiplied pixels, alpha divided out after.
class VN_EXPORT PxBilinearSampler final : public PxTextureSampler {
public:
    PxBilinearSampler(PxNodePtr<PxImageProtocol const> const& node,
                      PxTimeScaleContext const& context, IxPixelFormat const& format,
                      SdTextureParams const& params);
    PxBilinearSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                      SdTextureParams const& params);
    Color sample(GePoint<double> const& p, GeLinearMatrix2<double> const& jacobian) const override;
    Color sample(GePoint<double> const& p, GeLinearMatrix2<float> const& jacobian) const override;
    void sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                   GeLinearMatrix2<float> const& jacobian, Color* out) const override;

private:
    using PxTextureSampler::sample;
    Color at(GePoint<double> const& p) const;
};

// Bilinear on pixels as stored, for images without alpha: never divides.
class VN_EXPORT PxBilinearRGBSampler final : public PxTextureSampler {
public:
    PxBilinearRGBSampler(PxNodePtr<PxImageProtocol const> const& node,
                         PxTimeScaleContext const& context, IxPixelFormat const& format,
                         SdTextureParams const& params);
    PxBilinearRGBSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                         SdTextureParams const& params);
    Color sample(GePoint<double> const& p, GeLinearMatrix2<double> const& jacobian) const override;
    Color sample(GePoint<double> const& p, GeLinearMatrix2<float> const& jacobian) const override;
    void sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                   GeLinearMatrix2<float> const& jacobian, Color* out) const override;

private:
    using PxTextureSampler::sample;
    Color at(GePoint<double> const& p) const;
};

// The Mitchell-Netravali cubic with B = C = 1/3 over 4 x 4 premultiplied pixels.
class VN_EXPORT PxMitchellSampler final : public PxTextureSampler {
public:
    PxMitchellSampler(PxNodePtr<PxImageProtocol const> const& node,
                      PxTimeScaleContext const& context, IxPixelFormat const& format,
                      SdTextureParams const& params);
    PxMitchellSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                      SdTextureParams const& params);
    Color sample(GePoint<double> const& p, GeLinearMatrix2<double> const& jacobian) const override;
    Color sample(GePoint<double> const& p, GeLinearMatrix2<float> const& jacobian) const override;
    void sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                   GeLinearMatrix2<float> const& jacobian, Color* out) const override;

    // The four weights of taps ix - 1 .. ix + 2 for fraction t.
    static void weights(float t, float w[4]) noexcept;

private:
    using PxTextureSampler::sample;
    Color at(GePoint<double> const& p) const;
    Color atCell(Cell const& c) const;
    // The weighted sum before alpha is divided out; p is the cell's pixel in the cache.
    Color premultipliedAt(Cell const& c, Color const* p) const;
};

} // namespace Vn
