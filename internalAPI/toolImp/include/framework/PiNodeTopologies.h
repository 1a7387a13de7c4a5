#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

// The controllers of the nodes that no tool describes (groups, boundaries, links, values), with
// their processing sides. Installed as the graph's factory of controllers while the tool
// framework runs.
class VN_EXPORT PiNodeTopologies {
public:
    static void initialize();
    static void finalize();
    static RCShdPtr<PiNodeController> createController(PiSocketType type);
};

} // namespace Vn
