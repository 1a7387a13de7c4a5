#include "PiNodeController.h"

#include "PiGroupInterface.h"
#include "PiToolInterface.h"
#include "PiTopologyInterface.h"
#include "PiValueChangeInterface.h"

namespace Vn {

PiNodeEvent::~PiNodeEvent() = default;
PiNodeController::~PiNodeController() = default;
PiNodeController::LifeHook::~LifeHook() = default;
PiNodeControllerFactory::~PiNodeControllerFactory() = default;

namespace {
// The plain controllers: every hook at its default.
class PlainController final : public PiTopologyInterface, public PiValueChangeInterface {};
class PlainGroupController final : public PiGroupInterface, public PiTopologyInterface {};
// A group that stands for a tool is a tool node to its users.
class PlainToolGroupController final : public PiGroupInterface,
                                       public PiTopologyInterface,
                                       public PiToolInterface {};

OPtr<PiNodeControllerFactory>& installed() {
    static OPtr<PiNodeControllerFactory> f;
    return f;
}
} // namespace

RCShdPtr<PiNodeController> PiNodeControllerFactory::createGroupController(PiTool const* tool) {
    // Without the tool framework (the graph model alone) a tool group has no tool interface.
    if (tool && PiToolInterface::hasImplementationFactory())
        return RCShdPtr<PiNodeController>(new PlainToolGroupController);
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
