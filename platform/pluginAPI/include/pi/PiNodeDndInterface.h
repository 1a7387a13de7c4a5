#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiGroupNode;
class PiNode;
class PiTool;

// What a drag of a tool carries, whether a registered tool or a preset, so that the view that
// takes the drop need not know which.
class VN_EXPORT PiNodeDndInterface : public RCBase<LkCounter<int>> {
public:
    ~PiNodeDndInterface() override;

    // Null when the tool is not known to this process.
    virtual RCShdPtr<PiTool const> getTool() const = 0;
    virtual std::string getName() const = 0;
    // Where the thing comes from: a tool's category and name, a preset's file.
    virtual std::string getPath() const = 0;
    virtual bool isADisplayModifierTool() const = 0;
    // Makes the dropped node in the group and gives it.
    virtual RCShdPtr<PiNode> addNode(RCShdPtr<PiGroupNode> const& group,
                                     std::string const& name) const = 0;
};

} // namespace Vn
