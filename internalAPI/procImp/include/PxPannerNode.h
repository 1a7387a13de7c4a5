#pragma once

#include "PxImageNode.h"
#include "PxValueProtocol.h"

namespace Vn {

// Moves an image in the plane by the sum of two X and two Y terms. Without a filter it copies
// whole pixels of the source tiles, the offset truncated; with one it resamples through a texture
// so that parts of a pixel move smoothly. A NaN or infinite pan, and a filter value that names
// no sampler, raise PxEx::ExInvalidParameter.
class VN_EXPORT PxPannerNode final : public PxImageNode {
public:
    using DoubleInput = PxStrongHndl<PxAnimValueProtocol<double> const>;
    using IntInput = PxStrongHndl<PxAnimValueProtocol<int> const>;

    // Every input is required. filter is a texture filter value, 0 for whole pixels.
    PxPannerNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& image,
                 DoubleInput const& x, DoubleInput const& y, DoubleInput const& x2,
                 DoubleInput const& y2, IntInput const& filter, DoubleInput const& blur);
    ~PxPannerNode() override;

    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;

protected:
    void init() override;

private:
    struct Pan {
        float dx;
        float dy;
    };
    Pan readPan(double time, PxValidityInterval& vi) const;
    void resample(PxImageContext const& context, IxTile const& tile, GeRectangle<int> const& region,
                  GeRectangle<float> const& childROD, Pan pan, int filter,
                  PxValidityInterval& vi) const;

    PxNodePtr<PxImageProtocol const> _image;
    PxNodePtr<PxAnimValueProtocol<double> const> _x;
    PxNodePtr<PxAnimValueProtocol<double> const> _y;
    PxNodePtr<PxAnimValueProtocol<double> const> _x2;
    PxNodePtr<PxAnimValueProtocol<double> const> _y2;
    PxNodePtr<PxAnimValueProtocol<int> const> _filter;
    PxNodePtr<PxAnimValueProtocol<double> const> _blur;
};

} // namespace Vn
