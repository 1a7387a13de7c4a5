#include "PiDndToolPreset.h"

#include "PiGraphUtils.h"
#include "PiNode.h"
#include "PiTool.h"
#include "PiToolPreset.h"

namespace Vn {

PiDndToolPreset::PiDndToolPreset(RCShdPtr<PiToolPreset> preset) : _preset(std::move(preset)) {}
PiDndToolPreset::~PiDndToolPreset() = default;

RCShdPtr<PiDndToolPreset const> PiDndToolPreset::create(std::string const& path) {
    return RCShdPtr<PiDndToolPreset const>(new PiDndToolPreset(PiToolPreset::create(path)));
}

RCShdPtr<PiTool const> PiDndToolPreset::getTool() const {
    return _preset->getTool();
}

std::string PiDndToolPreset::getName() const {
    if (_name.empty())
        _name = _preset->getName();
    return _name;
}

std::string PiDndToolPreset::getPath() const {
    return _preset->getPresetPath();
}

bool PiDndToolPreset::isADisplayModifierTool() const {
    return _preset->isADisplayModifierTool();
}

RCShdPtr<PiNode> PiDndToolPreset::addNode(RCShdPtr<PiGroupNode> const& group,
                                          std::string const& name) const {
    std::string const unique =
        PiGraphUtils::findUniqueNodeName(group, name, PiGraphUtils::BASE_IS_FIRST);
    return _preset->addNode(group, unique);
}

} // namespace Vn
