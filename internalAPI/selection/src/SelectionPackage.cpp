#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "SelectionInit.h"
#include "SnIsItem.h"
#include "SnItemPayloads.h"
#include "SnSelection.h"

#include <string>

namespace Vn {

template <>
InInit<VnInit::selection>::InInit() : InPackageInit("selection") {
    registerPackage();
    addDependencies<VnInit::base, VnInit::primitives, VnInit::resmgt, VnInit::pluginAPI>();
}

// The predicates of the item types this package owns; other packages make those of theirs.
namespace {
template <class... T>
void initializePointerPredicates() {
    (SnIsItemDataNonNull<SnItemBasic<RCShdPtr<T>>>::initialize(), ...);
}
template <class... T>
void finalizePointerPredicates() {
    (SnIsItemDataNonNull<SnItemBasic<RCShdPtr<T>>>::finalize(), ...);
}

#define VN_SN_AFTER_COMMA(T) , T
#define VN_SN_POINTER_PAYLOADS                                                                     \
    SnSelection const, SnSelection VN_SN_FOR_EACH_POINTER_PAYLOAD(VN_SN_AFTER_COMMA)
} // namespace

template <>
void InInit<VnInit::selection>::initialize() {
    SnIsItem<SnItemBasic<std::string>>::initialize();
    SnIsItem<SnItemBasic<LiString>>::initialize();
    initializePointerPredicates<VN_SN_POINTER_PAYLOADS>();
}

template <>
void InInit<VnInit::selection>::finalize() {
    finalizePointerPredicates<VN_SN_POINTER_PAYLOADS>();
    SnIsItem<SnItemBasic<LiString>>::finalize();
    SnIsItem<SnItemBasic<std::string>>::finalize();
}

#undef VN_SN_POINTER_PAYLOADS

namespace {
InInit<VnInit::selection> s_package;
}

} // namespace Vn
