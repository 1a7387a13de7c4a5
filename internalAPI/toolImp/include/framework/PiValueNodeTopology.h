#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

// Gives value nodes a controller whose topology makes one processing node holding the node's
// stored value, which follows every edit of it (undo and redo too). Installed as the graph's
// factory of value controllers while the tool framework runs.
class VN_EXPORT PiValueNodeTopology {
public:
    static void initialize();
    static void finalize();
    static RCShdPtr<PiNodeController> createController(PiSocketType type);
};

} // namespace Vn
