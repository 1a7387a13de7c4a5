#pragma once

#include "PxNode.h"
#include "PxQueryRequest.h"
#include "RCCbHandler.h"

namespace Vn {

// A node that stands for another one, its child, which may change. Parties that want to know of
// its invalidations subscribe a handler, which it holds weakly.
class VN_EXPORT PxPassThroughProtocol : public virtual PxNode {
public:
    struct InvalidationInfo {
        PxUPtr<PxNode const> node;
        PxValidityInterval interval;
        int stream;
    };
    using InvalidationHandler = RCCbHandler<InvalidationInfo const>;

    // On a worker only; the child must not be null.
    virtual void setChild(PxUPtr<PxNode const> const& child) = 0;
    virtual void addInvalidateCb(RCWeakPtr<InvalidationHandler> const& handler) = 0;
    virtual void removeInvalidateCb(RCWeakPtr<InvalidationHandler> const& handler) = 0;
    // Whether `child` has the class this node forwards to. Fixed by the node's class: safe on
    // any thread.
    virtual bool acceptsChild(PxNode const& child) const;
};

// Mutations keep their nodes' memory until they run, and do nothing to a node that its tool has
// let go in the meantime.

// Starts an invalidation wave at a node.
class VN_EXPORT PxInvalidationRequest final : public PxMutationRequest {
public:
    // Raises PxEx::ExInvalidParameter for a null node or an interval with a NaN end.
    PxInvalidationRequest(PxUPtr<PxNode const> const& node, PxValidityInterval const& interval,
                          int stream);
    void performExecute() override;

private:
    PxNodePtr<PxNode const> _node;
    PxValidityInterval _interval;
    int _stream;
};

// Gives a pass-through node a new child.
class VN_EXPORT PxSetChildRequest final : public PxMutationRequest {
public:
    // Raises PxEx::ExInvalidParameter, on the caller's thread, for a null node or child and for
    // a child of a class the node does not forward to.
    PxSetChildRequest(PxUPtr<PxPassThroughProtocol> const& node, PxUPtr<PxNode const> const& child);
    void performExecute() override;

private:
    PxNodePtr<PxPassThroughProtocol> _node;
    PxNodePtr<PxNode const> _child;
};

// Subscribes a handler to a pass-through node's invalidations.
class VN_EXPORT PxAddInvalidateCbRequest final : public PxMutationRequest {
public:
    PxAddInvalidateCbRequest(PxUPtr<PxPassThroughProtocol> const& node,
                             RCWeakPtr<PxPassThroughProtocol::InvalidationHandler> handler)
        : _node(node), _handler(std::move(handler)) {}
    void performExecute() override;

private:
    PxNodePtr<PxPassThroughProtocol> _node;
    RCWeakPtr<PxPassThroughProtocol::InvalidationHandler> _handler;
};

} // namespace Vn
