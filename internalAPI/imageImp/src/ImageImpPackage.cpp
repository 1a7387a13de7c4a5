#include "ImageImpInit.h"
#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PxConfig.h"
#include "ResmgtInit.h"

namespace Vn {

template <>
InInit<VnInit::imageImp>::InInit() : InPackageInit("imageImp") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI, VnInit::base>();
}

template <>
void InInit<VnInit::imageImp>::initialize() {}

template <>
void InInit<VnInit::imageImp>::finalize() {}

namespace {
InInit<VnInit::imageImp> s_package;
}

} // namespace Vn
