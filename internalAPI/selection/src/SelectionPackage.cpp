#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "SelectionInit.h"
#include "SnIsItem.h"
#include "SnSelection.h"

#include <string>

namespace Vn {

template <>
InInit<VnInit::selection>::InInit() : InPackageInit("selection") {
    registerPackage();
    addDependencies<VnInit::base, VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI>();
}

// The predicates of the item types this package owns; other packages make those of theirs.
template <>
void InInit<VnInit::selection>::initialize() {
    SnIsItem<SnItemBasic<std::string>>::initialize();
    SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection const>>>::initialize();
    SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection>>>::initialize();
}

template <>
void InInit<VnInit::selection>::finalize() {
    SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection>>>::finalize();
    SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection const>>>::finalize();
    SnIsItem<SnItemBasic<std::string>>::finalize();
}

namespace {
InInit<VnInit::selection> s_package;
}

} // namespace Vn
