#include "PxQueryRequest.h"
#include "PxPassThroughProtocol.h"
#include "PxValueProtocol.h"

namespace Vn {

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
    _node->invalidate(_interval, _stream);
}
void PxSetChildRequest::performExecute() {
    _node->setChild(_child);
}
void PxAddInvalidateCbRequest::performExecute() {
    _node->addInvalidateCb(_handler);
}

} // namespace Vn
