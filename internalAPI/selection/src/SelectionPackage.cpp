#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "SelectionInit.h"

namespace Vn {

template <>
InInit<VnInit::selection>::InInit() : InPackageInit("selection") {
    registerPackage();
    addDependencies<VnInit::base, VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI>();
}

template <>
void InInit<VnInit::selection>::initialize() {}

template <>
void InInit<VnInit::selection>::finalize() {}

namespace {
InInit<VnInit::selection> s_package;
}

} // namespace Vn
