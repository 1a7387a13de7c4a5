#pragma once

#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "RCCbHandler.h"
#include "VwCamera.h"

namespace Vn {

using PxCameraResult = PxResult<VwCamera>;

// A node that gives a camera at a time.
class VN_EXPORT PxCameraProtocol : public virtual PxNode {
public:
    virtual PxCameraResult getCamera(PxTimeContext const& context) const = 0;
};

// Asks a node for its camera. A caller that does not want to wait gives a handler, held weakly:
// once the request has run, the handler, if it still exists, is called with the request, and
// reads the camera (or its failure) from it.
class VN_EXPORT PxCameraRequest : public PxQueryRequest<PxCameraResult> {
public:
    using Handler = RCCbHandler<PxCameraRequest const>;

    PxCameraRequest(PxUPtr<PxCameraProtocol const> const& node, PxTimeContext const& context,
                    RCWeakPtr<Handler> const& handler = {})
        : _node(node), _context(context), _handler(handler) {}
    void performExecute() override { setResult(_node->getCamera(_context)); }
    void postExecute() override { PxResultHandlers::tell(_handler, *this); }
    // A camera is a plain value: nothing to drop.
    void performCleanUp() override {}
    PxCameraResult const& getCamera() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxCameraProtocol const> _node;
    PxTimeContext _context;
    RCWeakPtr<Handler> _handler;
};

} // namespace Vn
