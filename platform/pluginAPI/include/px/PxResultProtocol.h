#pragma once

#include "PxNode.h"
#include "PxQueryRequest.h"

namespace Vn {

// A node whose output can be marked as a result of the graph: state 1 marks it, 0 clears it.
class VN_EXPORT PxResultProtocol : public virtual PxNode {
public:
    virtual int getResultState() const = 0;
    // Sequential requests only.
    virtual void setResultState(int state) = 0;
};

// Gives a node its result state, after everything submitted before it.
class VN_EXPORT PxResultRequest final : public PxMutationRequest {
public:
    // The state is 0 or 1: checked here, on the caller's thread, so that the request cannot fail.
    PxResultRequest(PxUPtr<PxResultProtocol> const& node, int state);
    void performExecute() override {
        if (_node->getStrongCount() > 0)
            _node->setResultState(_state);
    }

private:
    PxNodePtr<PxResultProtocol> _node;
    int _state;
};

} // namespace Vn
