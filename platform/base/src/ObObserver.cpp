#include "ObObserver.h"

namespace Vn {

ObObserverAny::~ObObserverAny() = default;

} // namespace Vn
