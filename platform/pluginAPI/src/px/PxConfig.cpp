#include "PxConfig.h"
#include "Assertions.h"
#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "ResmgtInit.h"

#include <atomic>
#include <climits>

namespace Vn {

namespace {
std::atomic<int> s_expX{PxConfig::kDefaultTileSizeExp};
std::atomic<int> s_expY{PxConfig::kDefaultTileSizeExp};
} // namespace

void PxConfig::initialize(int expX, int expY) {
    VN_ASSERT(expX >= kMinTileSizeExp && expX <= kMaxTileSizeExp);
    VN_ASSERT(expY >= kMinTileSizeExp && expY <= kMaxTileSizeExp);
    s_expX.store(expX, std::memory_order_relaxed);
    s_expY.store(expY, std::memory_order_relaxed);
}

int PxConfig::getTileSizeExpX() noexcept {
    return s_expX.load(std::memory_order_relaxed);
}
int PxConfig::getTileSizeExpY() noexcept {
    return s_expY.load(std::memory_order_relaxed);
}
int PxConfig::getOutsideTile() noexcept {
    return INT_MIN;
}
int PxConfig::getOutsideScale() noexcept {
    return INT_MIN;
}

template <>
InInit<VnInit::pluginAPI>::InInit() : InPackageInit("pluginAPI") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::pluginAPI>::initialize() {}

template <>
void InInit<VnInit::pluginAPI>::finalize() {}

namespace {
InInit<VnInit::pluginAPI> s_package;
}

} // namespace Vn
