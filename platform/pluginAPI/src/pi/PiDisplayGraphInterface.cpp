#include "PiDisplayGraphInterface.h"

#include "PiImageModifierProtocol.h"
#include "PiSocketType.h"
#include "PiTool.h"

namespace Vn {

PiImageModifierProtocol::~PiImageModifierProtocol() = default;
PiGraphAnimInterface::~PiGraphAnimInterface() = default;
PiDisplayGraphInterface::~PiDisplayGraphInterface() = default;

namespace {
PiImageModifierProtocol const* modifierOf(RCShdPtr<PiTool const> const& tool) {
    return tool ? dynamic_cast<PiImageModifierProtocol const*>(&tool->getProtocol()) : nullptr;
}
} // namespace

bool PiDisplayGraphInterface::isADisplayModifierTool(RCShdPtr<PiTool const> const& tool) {
    PiImageModifierProtocol const* p = modifierOf(tool);
    return p && p->isDisplayModifier();
}

bool PiDisplayGraphInterface::isAComparisonTool(RCShdPtr<PiTool const> const& tool) {
    if (!modifierOf(tool))
        return false;
    int images = 0;
    bool reference = false;
    for (auto const& in : tool->getDescriptor().getInputs()) {
        if (in.type.getType() != PiSocketType::IMAGE)
            continue;
        ++images;
        reference = reference || in.name == ComparisonReference;
    }
    return images == 2 && reference;
}

} // namespace Vn
