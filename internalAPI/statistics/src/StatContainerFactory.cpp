#include "StatContainerFactory.h"

namespace Vn {

StatContainerFactory::~StatContainerFactory() = default;

} // namespace Vn
