#pragma once

#include "CoRgbaColor.h"
#include "GeLinearMatrix.h"
#include "GeRectangle.h"
#include "GeVector.h"
#include "IxGuardProxy.h"
#include "OPtr.h"
#include "RCBase.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

class PxValidityInterval;

// Types shared by the shading interfaces.
class VN_EXPORT SdTypes {
public:
    using Color = CoRgbaColorTyped<float>;
};

// Types of texture sampling.
class VN_EXPORT SdTextureTypes {
public:
    // How positions outside the image read; the values are those of IxPaddingPolicy.
    enum Wrap : std::int32_t {
        WRAP_BLACK = 0,  // transparent black
        WRAP_EDGE = 1,   // the nearest edge pixel
        WRAP_REPEAT = 2, // the image repeated
        WRAP_MIRROR = 3, // the image repeated, every second period reversed
        WRAP_NOOP = 4,   // nothing: reads must stay inside the image
    };
    // Reconstruction filters.
    enum Filter : std::int32_t {
        FILTER_NEAREST = 0,
        FILTER_BILINEAR = 1,
        FILTER_EWA = 2,
        FILTER_MITCHELL = 3,
        FILTER_EWA_GAUSS = 4,
        FILTER_EWA_JINC2 = 5,
        FILTER_EWA_JINC3 = 6,
        NB_FILTERS = 7,
    };
};

// What a sampler is asked to do. Texture space is the unit square over the image's region.
struct VN_EXPORT SdTextureParams {
    std::int32_t filter = SdTextureTypes::FILTER_BILINEAR;
    // Scales the filter footprint.
    float blur = 1.0f;
    // The footprint never shrinks below this, in filter radii.
    float minBlur = 0.0f;
    std::int32_t wrapS = SdTextureTypes::WRAP_BLACK;
    std::int32_t wrapT = SdTextureTypes::WRAP_BLACK;
    // Row-vector affine map from sampling positions to texture space, row major: a point
    // (x, y) goes to (m[0] x + m[3] y + m[6], m[1] x + m[4] y + m[7]). Column 2 is not read.
    float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

// Tells the colour of a texture at positions taken in any order. Positions and footprints in
// the integer forms are in image pixels; in the point forms they go through the texture matrix.
// One thread per sampler.
class VN_EXPORT SdTextureSampler : public IxGuardProxy, public SdTypes, public SdTextureTypes {
public:
    ~SdTextureSampler() override;
    void releaseGuard() const override = 0;
    // Pixel (x, y) of the image with a footprint of du by dv pixels along the axes.
    virtual Color sample(int x, int y, float du, float dv) const = 0;
    // Footprint by its Jacobian (a, b; c, d).
    virtual Color sample(int x, int y, float a, float b, float c, float d) const = 0;
    // Footprint by its covariance P, S, Q.
    virtual Color sample(int x, int y, float p, float s, float q) const = 0;
    virtual Color sample(int x, int y, GeLinearMatrix2<float> const& jacobian) const = 0;
    virtual Color sample(GePoint<double> const& p,
                         GeLinearMatrix2<double> const& jacobian) const = 0;
    virtual Color sample(GePoint<double> const& p,
                         GeLinearMatrix2<float> const& jacobian) const = 0;
    // n samples at p + i step, i = 0 .. n - 1, each as the point form gives it: one call a
    // row rather than one a pixel.
    virtual void sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                           GeLinearMatrix2<float> const& jacobian, Color* out) const;
    // Position i of a row.
    static GePoint<double> rowPosition(GePoint<double> const& p, GeVector2<double> const& step,
                                       int i) noexcept {
        double const t = i;
        return {p.x + t * step.x, p.y + t * step.y};
    }
    // Narrows vi by what the sampler has read.
    virtual void reduceVI(PxValidityInterval& vi) const = 0;
    // Output walked in blocks of this size keeps the sampler's cache warm.
    virtual int getCacheBlockingSizeX() const = 0;
    virtual int getCacheBlockingSizeY() const = 0;
    virtual void releaseTiles() const = 0;
    virtual void registerGuardProxy(IxGuardProxy const& proxy) const = 0;

protected:
    SdTextureSampler() noexcept = default;
};

// A texture: parameters, and samplers made on request, one per thread.
class VN_EXPORT SdTexture : public RCBase<int> {
public:
    explicit SdTexture(SdTextureParams const& params) noexcept : _params(params) {}
    SdTextureParams const& getParams() const noexcept { return _params; }
    // A new sampler; null when the parameters name no filter.
    virtual OPtrRet<SdTextureSampler const> getSampler() const = 0;
    // No pixel of the texture is transparent.
    virtual bool isOpaque() const = 0;

protected:
    ~SdTexture() override;

private:
    SdTextureParams _params;
};

} // namespace Vn
