#include "CoRgbaColor.h"
#include "ImageImpInit.h"
#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "IxMemResourceImp.h"
#include "IxRollingScanlineBufferImp.h"
#include "IxScanlineCacheImp.h"
#include "PxConfig.h"
#include "ResmgtInit.h"

#include <complex>

namespace Vn {

template <>
InInit<VnInit::imageImp>::InInit() : InPackageInit("imageImp") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI, VnInit::base>();
}

template <>
void InInit<VnInit::imageImp>::initialize() {
    IxMemResource::initialize(new IxMemResourceImp);
    IxRollingScanlineBufferImp<float>::initialize();
    IxRollingScanlineBufferImp<CoRgbaColorTyped<float>>::initialize();
    IxScanlineCacheImp<float>::initialize();
    IxScanlineCacheImp<std::complex<float>>::initialize();
    IxScanlineCacheImp<CoRgbaColorTyped<float>>::initialize();
}

template <>
void InInit<VnInit::imageImp>::finalize() {
    IxMemResource::finalize();
}

namespace {
InInit<VnInit::imageImp> s_package;
}

} // namespace Vn
