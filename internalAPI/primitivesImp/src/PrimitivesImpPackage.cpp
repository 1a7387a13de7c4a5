#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PrimitivesImpInit.h"

namespace Vn {

template <>
InInit<VnInit::primitivesImp>::InInit() : InPackageInit("primitivesImp") {
    registerPackage();
    addDependencies<VnInit::primitives, VnInit::base>();
}

template <>
void InInit<VnInit::primitivesImp>::initialize() {}

template <>
void InInit<VnInit::primitivesImp>::finalize() {}

namespace {
InInit<VnInit::primitivesImp> s_package;
}

} // namespace Vn
