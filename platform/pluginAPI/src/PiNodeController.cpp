#include "PiNodeController.h"

#include "PiGroupInterface.h"
#include "PiTopologyInterface.h"
#include "PiValueChangeInterface.h"

namespace Vn {

PiNodeController::~PiNodeController() = default;
PiNodeControllerFactory::~PiNodeControllerFactory() = default;

namespace {
// The plain controllers: every hook at its default.
class PlainController final : public PiTopologyInterface, public PiValueChangeInterface {};
class PlainGroupController final : public PiGroupInterface, public PiTopologyInterface {};

OPtr<PiNodeControllerFactory>& installed() {
    static OPtr<PiNodeControllerFactory> f;
    return f;
}
} // namespace

RCShdPtr<PiNodeController> PiNodeControllerFactory::createGroupController(PiTool const*) {
    return RCShdPtr<PiNodeController>(new PlainGroupController);
}
RCShdPtr<PiNodeController> PiNodeControllerFactory::createBoundaryController() {
    return RCShdPtr<PiNodeController>(new PlainController);
}
RCShdPtr<PiNodeController> PiNodeControllerFactory::createLinkController() {
    return RCShdPtr<PiNodeController>(new PlainController);
}
RCShdPtr<PiNodeController> PiNodeControllerFactory::createValueController(PiSocketType) {
    return RCShdPtr<PiNodeController>(new PlainController);
}

PiNodeControllerFactory& PiNodeControllerFactory::getInstance() {
    static PiNodeControllerFactory defaultFactory;
    OPtr<PiNodeControllerFactory>& f = installed();
    return f ? *f : defaultFactory;
}

void PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory> factory) {
    installed() = std::move(factory);
}

} // namespace Vn
