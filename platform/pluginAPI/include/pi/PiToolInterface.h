#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

// The mix-in of a tool node's controller. It keeps the names of the presets the node was last
// loaded from, most recent last, and which of them is current.
class VN_EXPORT PiToolInterface : public virtual PiNodeController {
public:
    // setCurrentPreset by name keeps at most this many names.
    static constexpr int MAX_PRESETS = 4;

    ~PiToolInterface() override;

    // An index beyond the list makes no preset current. Signals PresetChanged either way.
    virtual void setCurrentPreset(int index);
    // Selects the name, adding it at the end first when it is new (dropping the oldest once
    // the list is full). Signals PresetChanged.
    virtual void setCurrentPreset(std::string const& name);
    // -1 when no preset is current.
    virtual int getCurrentPreset() const;
    virtual std::vector<std::string> const& getPresets() const;
    // Replaces the list; the current index stays only while it names a preset.
    virtual void setPresets(std::vector<std::string> presets);
    virtual void clearPresets();

    // The current preset's name; empty when none.
    std::string getCurrentPresetName() const;
    // The tool of the controlled node; null while there is no node. A node without a tool is
    // an assertion failure.
    RCShdPtr<PiTool const> getTool() const;

private:
    std::vector<std::string> _presets;
    int _currentPreset = -1;
};

} // namespace Vn
