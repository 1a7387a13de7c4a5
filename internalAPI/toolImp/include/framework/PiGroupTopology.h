#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

class PiTool;

// The controllers that put groups in the processing graph: a group's sockets are its boundary
// nodes', and each boundary node holds the pass-through that faces both sides of its socket.
class VN_EXPORT PiGroupTopology {
public:
    // A group's controller (a tool group's also has a tool interface).
    static RCShdPtr<PiNodeController> createGroupController(PiTool const* tool);
    static RCShdPtr<PiNodeController> createBoundaryController();
};

} // namespace Vn
