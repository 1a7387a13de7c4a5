#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

// The mix-in of a graph's controller that says whether values in the graph may animate.
class VN_EXPORT PiGraphAnimInterface : public virtual PiNodeController {
public:
    ~PiGraphAnimInterface() override;
    virtual bool canAnimate() const = 0;
};

} // namespace Vn
