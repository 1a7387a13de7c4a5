#include "PiGraph.h"

namespace Vn {

PiGraphController::~PiGraphController() = default;
PiGraph::~PiGraph() = default;

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
