#include "DataImpInit.h"
#include "InPackageInit.h"
#include "PxConfig.h"
#include "VideoPreviewBaseInit.h"

namespace Vn {

template <>
InInit<VnInit::videoPreviewBase>::InInit() : InPackageInit("videoPreviewBase") {
    registerPackage();
    addDependencies<VnInit::dataImp, VnInit::pluginAPI, VnInit::base>();
}

template <>
void InInit<VnInit::videoPreviewBase>::initialize() {}

template <>
void InInit<VnInit::videoPreviewBase>::finalize() {}

namespace {
InInit<VnInit::videoPreviewBase> s_package;
}

} // namespace Vn
