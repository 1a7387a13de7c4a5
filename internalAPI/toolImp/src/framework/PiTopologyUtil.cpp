#include "PiTopologyUtil.h"

#include "Assertions.h"
#include "PiProcNodeFactory.h"

namespace Vn::PiTopologyUtil {

PxStrongHndl<PxPassThroughProtocol> asPassThrough(Node const& node) {
    auto const* p = dynamic_cast<PxPassThroughProtocol const*>(node.get());
    if (!p)
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "the node behind a socket is a pass-through");
    // The topology made the node and is the only one to change it, through requests.
    return PxStrongHndl<PxPassThroughProtocol>(const_cast<PxPassThroughProtocol*>(p));
}

void setChild(PxStrongHndl<PxPassThroughProtocol> const& node, Node const& child) {
    PxMutationRequest::submit(
        new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(node), PxUPtr<PxNode const>(child)));
}

PxStrongHndl<PxPassThroughProtocol> makeFace(PiSocketType const& type) {
    return asPassThrough(PiProcNodeFactory::createPassThroughNode(
        type, PiProcNodeFactory::createGeneratorNode(type)));
}

Node sourceOf(RCShdPtr<PiInput> const& in) {
    if (RCShdPtr<PiOutput> out = in->getConnectedOutput())
        if (auto topo =
                rcDynamicCast<PiTopologyInterface>(out->retrieveNode()->getController().lock()))
            if (Node n = topo->getOutputProcNode(out).lock())
                return n;
    return PiProcNodeFactory::createGeneratorNode(in->getType());
}

} // namespace Vn::PiTopologyUtil
