#include "DataImpInit.h"
#include "ImageImpInit.h"
#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PiPixelLoopImp.h"
#include "PrimitivesImpInit.h"
#include "ProcImpInit.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "SelectionInit.h"
#include "TimeImpInit.h"
#include "ToolImpInit.h"

namespace Vn {

template <>
InInit<VnInit::toolImp>::InInit() : InPackageInit("toolImp") {
    registerPackage();
    addDependencies<VnInit::timeImp, VnInit::dataImp, VnInit::procImp, VnInit::selection,
                    VnInit::primitivesImp, VnInit::imageImp, VnInit::pluginAPI, VnInit::primitives,
                    VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::toolImp>::initialize() {
    PiPixelLoopImp::initialize();
}

template <>
void InInit<VnInit::toolImp>::finalize() {
    PiPixelLoopImp::finalize();
}

namespace {
InInit<VnInit::toolImp> s_package;
}

} // namespace Vn
