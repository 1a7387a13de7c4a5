#pragma once

#include "PiNodeDndInterface.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiToolPreset;

// A preset file, dragged.
class VN_EXPORT PiDndToolPreset : public PiNodeDndInterface {
public:
    // Makes its preset by PiToolPreset::create; the file is not touched.
    static RCShdPtr<PiDndToolPreset const> create(std::string const& path);
    ~PiDndToolPreset() override;

    RCShdPtr<PiToolPreset> const& getPreset() const noexcept { return _preset; }
    RCShdPtr<PiTool const> getTool() const override;
    // The preset's name, taken once and then kept.
    std::string getName() const override;
    // The preset's file.
    std::string getPath() const override;
    bool isADisplayModifierTool() const override;
    // The preset's node, under the name made unique in the group.
    RCShdPtr<PiNode> addNode(RCShdPtr<PiGroupNode> const& group,
                             std::string const& name) const override;

private:
    explicit PiDndToolPreset(RCShdPtr<PiToolPreset> preset);
    RCShdPtr<PiToolPreset> _preset;
    mutable std::string _name;
};

} // namespace Vn
