#pragma once

#include "PiTopologyInterface.h"
#include "VnExport.h"

namespace Vn {

// The mix-in of a value node's controller: the node's output stands for a pass-through over
// the controller's own processing node, or over what drives the value node's input while it
// is connected.
class VN_EXPORT PiValueTopologyInterface : public PiTopologyInterface {
public:
    ~PiValueTopologyInterface() override;
    // A new processing node that gives the controller's value.
    virtual PxStrongHndl<PxNode const> createValueProcNode() = 0;
};

} // namespace Vn
