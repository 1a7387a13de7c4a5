#pragma once

#include "HoImageNodes.h"
#include "PiAffineNodeUtil.h"
#include "PiCropNodeUtil.h"
#include "PxValueProtocol.h"

namespace Vn {

// An image moved, turned and scaled by the eight affine inputs, each output pixel read back
// through a texture sampler of the source: nearest, bilinear, Mitchell or EWA (the filter
// values of SdTextureTypes). Pixels are premultiplied before and after.
class VN_EXPORT HoTransformNode final : public HoWorkingNode {
public:
    // filter gives an SdTextureTypes filter value; no handle may be null.
    HoTransformNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
                    PiAffineNodeUtil::Params const& params,
                    PxStrongHndl<PxAnimValueProtocol<int> const> const& filter);
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;

protected:
    void init() override;

private:
    PiAffineNodeUtil::Params _params;
    PxNodePtr<PxAnimValueProtocol<int> const> _filter;
};

// The part of an image the crop inputs keep; beyond the source, the source's fill colour.
class VN_EXPORT HoCropNode final : public HoWorkingNode {
public:
    HoCropNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
               PiCropNodeUtil::Params const& params);
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;

protected:
    void init() override;

private:
    PiCropNodeUtil::Params _params;
};

// A Gaussian blur of premultiplied RGBA, separable: across each row, then down the columns.
// The size is the radius in pixels, as a feather's: sigma is half of it and the kernel reaches
// 1.5 times as far. Each tile reads only the source pixels its kernel reaches.
class VN_EXPORT HoBlurNode final : public HoWorkingNode {
public:
    // No handle may be null.
    HoBlurNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
               PxStrongHndl<PxAnimValueProtocol<double> const> const& size);
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;

    // The blur's reach in pixels from the centre tap for a size: what it adds around the image.
    static int reach(double size) noexcept;

protected:
    void init() override;

private:
    double readSize(double time, PxValidityInterval& vi) const;

    PxNodePtr<PxAnimValueProtocol<double> const> _size;
};

} // namespace Vn
