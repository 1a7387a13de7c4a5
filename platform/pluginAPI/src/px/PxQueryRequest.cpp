#include "PxQueryRequest.h"
#include "PxEx.h"
#include "PxPassThroughProtocol.h"
#include "PxValueProtocol.h"

#include <cmath>

namespace Vn {

void PxResultHandlers::reportCurrentFailure() noexcept {
    try {
        throw;
    } catch (ExBase const& e) {
        ExStdout::printAtomically("A request's result handler failed: " + e.getDetailedReason());
    } catch (std::exception const& e) {
        ExStdout::printAtomically(std::string("A request's result handler failed: ") + e.what());
    } catch (...) {
        ExStdout::printAtomically("A request's result handler failed");
    }
}

bool PxPassThroughProtocol::acceptsChild(PxNode const&) const {
    return true;
}

PxInvalidationRequest::PxInvalidationRequest(PxUPtr<PxNode const> const& node,
                                             PxValidityInterval const& interval, int stream)
    : _node(node), _interval(interval), _stream(stream) {
    if (!node)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__, "An invalidation needs a node");
    if (std::isnan(interval.getLow()) || std::isnan(interval.getHigh()))
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "An invalidation interval must not have a NaN end");
}

PxSetChildRequest::PxSetChildRequest(PxUPtr<PxPassThroughProtocol> const& node,
                                     PxUPtr<PxNode const> const& child)
    : _node(node), _child(child) {
    if (!node)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__, "A child change needs a node");
    if (!child)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "A pass-through node's child must not be null");
    if (!node->acceptsChild(*child))
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       std::string("The child given to a pass-through node is a ") +
                                           child->getTypeName() +
                                           ", not a node of the kind it forwards to");
}

void PxMutationRequest::postExecute() {
    PxRequestMgr::getInstance().waitRequest(this);
}

void PxMutationRequest::submit(PxMutationRequest* request) {
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    mgr.executeRequest(request, false);
    mgr.releaseRequest(request);
}

void PxGraphObjIdsRequest::performExecute() {
    setResult({_node->getNodeId(), _node->getOutputSocketId()});
}

void PxInvalidationRequest::performExecute() {
    if (_node->getStrongCount() > 0)
        _node->invalidate(_interval, _stream);
}
void PxSetChildRequest::performExecute() {
    if (_node->getStrongCount() > 0 && _child->getStrongCount() > 0)
        _node->setChild(PxUPtr<PxNode const>(_child));
}
void PxAddInvalidateCbRequest::performExecute() {
    if (_node->getStrongCount() > 0)
        _node->addInvalidateCb(_handler);
}

} // namespace Vn
