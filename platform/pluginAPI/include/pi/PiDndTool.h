#pragma once

#include "PiNodeDndInterface.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// A registered tool, dragged.
class VN_EXPORT PiDndTool : public PiNodeDndInterface {
public:
    // A null tool raises ExNullPtr.
    static RCShdPtr<PiDndTool const> create(RCShdPtr<PiTool const> const& tool);
    ~PiDndTool() override;

    RCShdPtr<PiTool const> getTool() const override { return _tool; }
    std::string getName() const override;
    // "<category>/<name>"
    std::string getPath() const override;
    bool isADisplayModifierTool() const override;
    // A node of the registered tool of the same full name and version, under the name made
    // unique in the group. A tool no longer registered raises ExBase.
    RCShdPtr<PiNode> addNode(RCShdPtr<PiGroupNode> const& group,
                             std::string const& name) const override;

private:
    explicit PiDndTool(RCShdPtr<PiTool const> tool);
    RCShdPtr<PiTool const> _tool;
};

} // namespace Vn
