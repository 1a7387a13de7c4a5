#pragma once

#include "PiTopologyInterface.h"
#include "VnExport.h"

#include <memory>

namespace Vn {

class PiTool;

// The controllers that put groups in the processing graph: a group's sockets are its boundary
// nodes', and each boundary node holds the pass-through that faces both sides of its socket.
class VN_EXPORT PiGroupTopology {
public:
    // A group's controller (a tool group's also has a tool interface).
    static RCShdPtr<PiNodeController> createGroupController(PiTool const* tool);
    static RCShdPtr<PiNodeController> createBoundaryController();
    // The processing side of a group, for a group controller of one's own (one that chooses
    // the nodes behind the group's outputs, say). It lives as long as `owner`.
    static std::unique_ptr<PiTopologyInterface::Imp> createGroupImp(PiNodeController& owner);
};

} // namespace Vn
