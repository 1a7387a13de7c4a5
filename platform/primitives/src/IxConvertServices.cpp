#include "IxConvertServices.h"
#include "InPackageInit.h"
#include "ResmgtInit.h"

#include <xmmintrin.h>

namespace Vn {

namespace {
constexpr unsigned kFlushToZero = 0x8000;
constexpr unsigned kDenormalsAreZero = 0x0040;
} // namespace

void IxConvertServices::configureSSE() {
    _mm_setcsr(_mm_getcsr() | kFlushToZero | kDenormalsAreZero);
}

bool IxConvertServices::isSSEConfigured() {
    unsigned const want = kFlushToZero | kDenormalsAreZero;
    return (_mm_getcsr() & want) == want;
}

template <>
InInit<VnInit::primitives>::InInit() : InPackageInit("primitives") {
    registerPackage();
    addDependencies<VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::primitives>::initialize() {}

template <>
void InInit<VnInit::primitives>::finalize() {}

namespace {
InInit<VnInit::primitives> s_package;
}

} // namespace Vn
