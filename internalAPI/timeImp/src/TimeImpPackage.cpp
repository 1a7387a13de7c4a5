#include "InPackageInit.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "TimeImpInit.h"
#include "TmCurrentEditingTime.h"

namespace Vn {

template <>
InInit<VnInit::timeImp>::InInit() : InPackageInit("timeImp") {
    registerPackage();
    addDependencies<VnInit::pluginAPI, VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::timeImp>::initialize() {
    TmCurrentEditingTime::initialize();
}

template <>
void InInit<VnInit::timeImp>::finalize() {
    TmCurrentEditingTime::finalize();
}

namespace {
InInit<VnInit::timeImp> s_package;
}

} // namespace Vn
