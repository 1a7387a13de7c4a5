#include "InPackageInit.h"
#include "ResmgtInit.h"

namespace Vn {

template <>
InInit<VnInit::resmgt>::InInit() : InPackageInit("resmgt") {
    registerPackage();
    addDependencies<VnInit::base>();
}

template <>
void InInit<VnInit::resmgt>::initialize() {}

template <>
void InInit<VnInit::resmgt>::finalize() {}

namespace {
InInit<VnInit::resmgt> s_package;
}

} // namespace Vn
