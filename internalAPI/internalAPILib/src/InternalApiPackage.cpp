#include "DataImpInit.h"
#include "ImageImpInit.h"
#include "InPackageInit.h"
#include "InternalApiInit.h"
#include "IxConvertServices.h"
#include "LibraryBuildInfo.h"
#include "PerfProbes.h"
#include "PrimitivesImpInit.h"
#include "ProcImpInit.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "SelectionInit.h"
#include "StatisticsInit.h"
#include "TimeImpInit.h"
#include "ToolImpInit.h"
#include "VideoPreviewBaseInit.h"

namespace Vn {

template <>
InInit<VnInit::internalAPI>::InInit() : InPackageInit("internalAPI") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI, VnInit::base,
                    VnInit::toolImp, VnInit::procImp, VnInit::primitivesImp, VnInit::imageImp,
                    VnInit::timeImp, VnInit::dataImp, VnInit::videoPreviewBase, VnInit::selection,
                    VnInit::statistics>();
}

template <>
void InInit<VnInit::internalAPI>::initialize() {
    InBuildInfoUtil::registerInfo(OPtr<InBuildInfo>(new LibraryBuildInfo));
    PerfProbes::registerProbes();
}

template <>
void InInit<VnInit::internalAPI>::finalize() {
    PerfProbes::unregisterProbes();
}

namespace {
InInit<VnInit::internalAPI> s_package;
}

} // namespace Vn
