#include "PiGraph.h"

#include "PiCommandStack.h"
#include "PiNodeController.h"

namespace Vn {

PiGraph::~PiGraph() = default;

RCShdPtr<PiCommandStack> PiGraph::shareCommandStack() {
    return RCShdPtr<PiCommandStack>(&getCommandStack());
}

RCShdPtr<PiNodeController> PiGraph::getController() const {
    RCShdPtr<PiGroupNode> root = getRootNode();
    return root ? root->getController().lock() : RCShdPtr<PiNodeController>();
}

PiGraphOpenGuard::PiGraphOpenGuard(RCShdPtr<PiGraph> graph) : _graph(std::move(graph)) {
    _graph->openCountChanged(1);
}

PiGraphOpenGuard::~PiGraphOpenGuard() {
    _graph->openCountChanged(-1);
}

RCShdPtr<PiGraphOpenGuard> PiGraph::open() {
    return RCShdPtr<PiGraphOpenGuard>(new PiGraphOpenGuard(RCShdPtr<PiGraph>(this)));
}

} // namespace Vn
