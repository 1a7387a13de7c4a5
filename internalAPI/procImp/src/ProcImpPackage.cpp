#include "Assertions.h"
#include "EnvIntVar.h"
#include "ImageImpInit.h"
#include "ImageProtocolServices.h"
#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PrimitivesImpInit.h"
#include "ProcImpInit.h"
#include "PxConfig.h"
#include "PxDAGMonitorImp.h"
#include "PxEWAFilterShape.h"
#include "PxGeometryCacheNode.h"
#include "PxGraphLog.h"
#include "RequestEngine.h"
#include "ResmgtInit.h"
#include "StatisticsInit.h"

VN_LG_DEFINE_GROUP(PxGraph)

namespace Vn {

namespace {
EnvIntVar s_tileSizeExpX(__FILE__, "VN_PXCONFIG_TILE_SIZE_EXPX", PxConfig::kDefaultTileSizeExp,
                         PxConfig::kMinTileSizeExp, PxConfig::kMaxTileSizeExp);
EnvIntVar s_tileSizeExpY(__FILE__, "VN_PXCONFIG_TILE_SIZE_EXPY", PxConfig::kDefaultTileSizeExp,
                         PxConfig::kMinTileSizeExp, PxConfig::kMaxTileSizeExp);
// Below 1 counts as 1.
EnvIntVar s_geometryCacheLruSize(__FILE__, "VN_GEOMETRY_CACHE_LRU_SIZE", 8);
} // namespace

template <>
InInit<VnInit::procImp>::InInit() : InPackageInit("procImp") {
    registerPackage();
    addDependencies<VnInit::primitivesImp, VnInit::imageImp, VnInit::statistics, VnInit::pluginAPI,
                    VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI, VnInit::base>();
}

template <>
void InInit<VnInit::procImp>::initialize() {
    // clang-format off
    VN_ASSERT(LgGroups::VN_XGLUE( MinorLevel, PxGraph ) == 0);
    // clang-format on
    LgGroups::MinorLevelPxGraph =
        new LgMinorGroup(LgMajorGroup::getInstanceForName("Pp"), "PxGraph");
    PxConfig::initialize(s_tileSizeExpX.getValue(), s_tileSizeExpY.getValue());
    PxImageProtocolServices::initialize(OPtr<PxImageProtocolServices>(new ImageProtocolServices));
    PxDAGMonitor::initialize(new PxDAGMonitorImp);
    PxGeometryCacheNode::setLruSize(s_geometryCacheLruSize.getValue());
    PxEWAFilterShape::initialize();
    RequestEngine::initializeEngine();
}

template <>
void InInit<VnInit::procImp>::finalize() {
    // clang-format off
    VN_ASSERT(LgGroups::VN_XGLUE( MinorLevel, PxGraph ) != 0);
    // clang-format on
    RequestEngine::finalizeEngine();
    PxImageProtocolServices::finalize();
    PxDAGMonitor::finalize();
    PxEWAFilterShape::finalize();
    delete LgGroups::MinorLevelPxGraph;
    LgGroups::MinorLevelPxGraph = nullptr;
}

namespace {
InInit<VnInit::procImp> s_package;
}

} // namespace Vn
