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
};

} // namespace Vn
