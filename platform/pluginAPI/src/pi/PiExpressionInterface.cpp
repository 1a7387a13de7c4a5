#include "PiExpressionInterface.h"

namespace Vn {

PiExpressionInterface::~PiExpressionInterface() = default;

bool PiExpressionInterface::keepsConsumer(RCShdPtr<PiInput> const&) const {
    return false;
}

} // namespace Vn
