#include "PiToolInterface.h"

#include "Assertions.h"
#include "PiGraphUtils.h"
#include "PiNode.h"
#include "PiTool.h"

#include <algorithm>

namespace Vn {

PiToolInterface::~PiToolInterface() = default;

void PiToolInterface::setCurrentPreset(int index) {
    _currentPreset = index >= 0 && index < static_cast<int>(_presets.size()) ? index : -1;
    PiNodeEvent e;
    e.type = PiNodeEvent::PresetChanged;
    e.index = _currentPreset;
    signalEvent(e);
}

void PiToolInterface::setCurrentPreset(std::string const& name) {
    auto it = std::find(_presets.begin(), _presets.end(), name);
    if (it == _presets.end()) {
        if (static_cast<int>(_presets.size()) >= MAX_PRESETS)
            _presets.erase(_presets.begin());
        _presets.push_back(name);
        it = _presets.end() - 1;
    }
    setCurrentPreset(static_cast<int>(it - _presets.begin()));
}

int PiToolInterface::getCurrentPreset() const {
    return _currentPreset;
}

std::vector<std::string> const& PiToolInterface::getPresets() const {
    return _presets;
}

void PiToolInterface::setPresets(std::vector<std::string> presets) {
    _presets = std::move(presets);
    if (_currentPreset >= static_cast<int>(_presets.size()))
        _currentPreset = -1;
}

void PiToolInterface::clearPresets() {
    _presets.clear();
    _currentPreset = -1;
}

std::string PiToolInterface::getCurrentPresetName() const {
    int const i = getCurrentPreset();
    std::vector<std::string> const& presets = getPresets();
    return i >= 0 && i < static_cast<int>(presets.size()) ? presets[i] : std::string();
}

RCShdPtr<PiTool const> PiToolInterface::getTool() const {
    RCShdPtr<PiNode> node = getNode();
    if (!node)
        return {};
    RCShdPtr<PiTool const> tool = PiGraphUtils::getTool(node);
    if (!tool)
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "\"Invalid node type used with PiToolInterface\" == 0");
    return tool;
}

} // namespace Vn
