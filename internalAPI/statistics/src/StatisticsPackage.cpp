#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "ResmgtInit.h"
#include "StatMemPool.h"
#include "StatMgr.h"
#include "StatResourceRegistry.h"
#include "StatTypes.h"
#include "StatisticsInit.h"

namespace Vn {

template <>
InInit<VnInit::statistics>::InInit() : InPackageInit("statistics") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::resmgt, VnInit::base>();
}

// A failed start undoes itself, since a package that did not start is not finalised.
template <>
void InInit<VnInit::statistics>::initialize() {
    StatMemPool::initialize();
    try {
        StatResourceRegistry::initialize();
        StatTypes::initialize();
    } catch (...) {
        StatResourceRegistry::finalize();
        StatMemPool::finalize();
        throw;
    }
}

template <>
void InInit<VnInit::statistics>::finalize() {
    StatMgr::flushStatistics();
    StatTypes::finalize();
    StatResourceRegistry::finalize();
    StatMemPool::finalize();
}

namespace {
InInit<VnInit::statistics> s_package;
}

} // namespace Vn
