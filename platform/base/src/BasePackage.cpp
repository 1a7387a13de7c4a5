#include "InPackageInit.h"

namespace Vn {

template <>
InInit<VnInit::base>::InInit() : InPackageInit("base") {
    registerPackage();
}

template <>
void InInit<VnInit::base>::initialize() {}

template <>
void InInit<VnInit::base>::finalize() {}

namespace {
InInit<VnInit::base> s_package;
}

} // namespace Vn
