#include "PiExpressionInterface.h"

namespace Vn {

PiExpressionInterface::~PiExpressionInterface() = default;

} // namespace Vn
