#include "PiShowVectorsControllerHelper.h"

#include "ExBase.h"
#include "PiTool.h"

namespace Vn {

namespace {
constexpr char const* kInterval = "Interval";
constexpr char const* kDisplayScale = "Display Scale";
} // namespace

void PiShowVectorsControllerHelper::describe(PiToolPolicyDescriptor& descriptor) {
    descriptor.stores(kInterval, PiValueType::Int);
    descriptor.stores(kDisplayScale, PiValueType::Double);
}

void PiShowVectorsControllerHelper::bind() {
    RCShdPtr<PiNode> const node = _controller.getNode();
    if (!node)
        RCExUtil::throwExNullPtr("PiNode");
    _interval = PiConstTypedValueUtil<int>(node->findValue(kInterval));
    _displayScale = PiConstTypedValueUtil<double>(node->findValue(kDisplayScale));
}

void PiShowVectorsControllerHelper::nodeCreated() {
    bind();
    reset();
}

void PiShowVectorsControllerHelper::nodeLoaded() {
    bind();
}

void PiShowVectorsControllerHelper::reset() {
    RCShdPtr<PiNode> const node = _controller.getNode();
    if (!node)
        RCExUtil::throwExNullPtr("PiNode");
    PiTypedValueUtil<int>(node->findValue(kInterval)).set(kResetInterval);
    PiTypedValueUtil<double>(node->findValue(kDisplayScale)).set(kResetDisplayScale);
}

} // namespace Vn
