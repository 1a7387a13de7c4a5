#pragma once

#include "PiTool.h"
#include "VnExport.h"

namespace Vn {

// The protocol of a tool that modifies an image. Some such tools also serve the viewers, in
// the display graphs that stand between an output and the screen.
class VN_EXPORT PiImageModifierProtocol : public PiToolProtocolImp {
public:
    using PiToolProtocolImp::PiToolProtocolImp;
    ~PiImageModifierProtocol() override;
    // Whether a viewer may put the tool in its display graph.
    virtual bool isDisplayModifier() const { return false; }
    // Which parts of its image the tool can change; all four components at least.
    virtual bool supportsAffectRgba() const { return true; }
    virtual bool supportsAffectRgb() const { return false; }
    virtual bool supportsAffectAlpha() const { return false; }
    // 1 when a mask may limit the tool's effect, 0 when it may not.
    virtual int getMaskingMode() const { return 1; }
};

} // namespace Vn
