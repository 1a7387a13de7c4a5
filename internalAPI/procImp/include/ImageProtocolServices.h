#pragma once

#include "PxImageProtocol.h"

namespace Vn {

// The engine's image protocol services. Stateless.
class VN_EXPORT ImageProtocolServices final : public PxImageProtocolServices {
public:
    IxReadGuard extendGuard(IxReadGuard const& source,
                            GeRectangle<int> const& region) const override;
    IxTile allocateTile(PxImageContext const& context, IxPixelFormat const& format,
                        CoRgbaColorTyped<float> const& fill,
                        GeRectangle<int> const& region) const override;
    IxTile assembleTiles(Vector<PxImageResult> const& results,
                         GeRectangle<int> const& region) const override;
};

} // namespace Vn
