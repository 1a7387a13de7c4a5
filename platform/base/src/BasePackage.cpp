#include "EvEventManager.h"
#include "InPackageInit.h"

namespace Vn {

template <>
InInit<VnInit::base>::InInit() : InPackageInit("base") {
    registerPackage();
}

template <>
void InInit<VnInit::base>::initialize() {}

// The event thread must not outlive the packages whose events it runs.
template <>
void InInit<VnInit::base>::finalize() {
    EvEventManager::getInstance().stop();
}

namespace {
InInit<VnInit::base> s_package;
}

} // namespace Vn
