#include "DataImpInit.h"
#include "InPackageInit.h"
#include "PiAutosaveUtil.h"
#include "ResmgtInit.h"

namespace Vn {

template <>
InInit<VnInit::dataImp>::InInit() : InPackageInit("dataImp") {
    registerPackage();
    addDependencies<VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::dataImp>::initialize() {
    PiAutosaveUtil::initialize();
}

template <>
void InInit<VnInit::dataImp>::finalize() {}

namespace {
InInit<VnInit::dataImp> s_package;
}

} // namespace Vn
