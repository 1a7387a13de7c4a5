#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "ResmgtInit.h"
#include "StatisticsInit.h"

namespace Vn {

template <>
InInit<VnInit::statistics>::InInit() : InPackageInit("statistics") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::statistics>::initialize() {}

template <>
void InInit<VnInit::statistics>::finalize() {}

namespace {
InInit<VnInit::statistics> s_package;
}

} // namespace Vn
