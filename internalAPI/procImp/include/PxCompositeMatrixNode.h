#pragma once

#include "PxAffineMatrixProtocol.h"
#include "PxQueryRequest.h"
#include "RCCbHandler.h"

#include <memory>
#include <vector>

namespace Vn {

// Chains a local and a global 3D transform: global * local, a missing side counting as the
// identity. Parties may ask to hear of every invalidation of the node, or only of those that
// come from the global side.
class VN_EXPORT PxCompositeMatrixNode final : public PxAffineMatrixProtocol {
public:
    using InvalidationHandler = RCCbHandler<PxValidityInterval const>;

    // Either side may be null.
    PxCompositeMatrixNode(PxNode::Init const& init,
                          PxStrongHndl<PxAffineMatrixProtocol const> const& local,
                          PxStrongHndl<PxAffineMatrixProtocol const> const& global);
    ~PxCompositeMatrixNode() override;

    PxResult<GeAffineMatrix3<float>> getMatrix(PxTimeContext const& context) const override;

    // On a sequential request. Replacing a side invalidates the node; replacing the global side
    // also tells the global handlers, over all time.
    void setLocalMatrixNode(PxUPtr<PxAffineMatrixProtocol const> const& node);
    void setGlobalMatrixNode(PxUPtr<PxAffineMatrixProtocol const> const& node);
    // On a worker. An add ignores a dead handler and one already there; a remove of a handler
    // that isn't there does nothing.
    void addInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler);
    void removeInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler);
    void addGlobalInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler);
    void removeGlobalInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler);

    // The same changes from any thread outside the workers: each sends a mutation and returns
    // without waiting. Through a weak handle whose node has gone, nothing happens.
    static void setLocalMatrixNode(PxStrongHndl<PxCompositeMatrixNode> const& node,
                                   PxStrongHndl<PxAffineMatrixProtocol const> const& matrix);
    static void setLocalMatrixNode(PxWeakHndl<PxCompositeMatrixNode> const& node,
                                   PxStrongHndl<PxAffineMatrixProtocol const> const& matrix);
    static void setGlobalMatrixNode(PxStrongHndl<PxCompositeMatrixNode> const& node,
                                    PxStrongHndl<PxAffineMatrixProtocol const> const& matrix);
    static void setGlobalMatrixNode(PxWeakHndl<PxCompositeMatrixNode> const& node,
                                    PxStrongHndl<PxAffineMatrixProtocol const> const& matrix);
    static void addInvalidationCb(PxStrongHndl<PxCompositeMatrixNode> const& node,
                                  RCWeakPtr<InvalidationHandler> const& handler);
    static void addInvalidationCb(PxWeakHndl<PxCompositeMatrixNode> const& node,
                                  RCWeakPtr<InvalidationHandler> const& handler);
    static void removeInvalidationCb(PxStrongHndl<PxCompositeMatrixNode> const& node,
                                     RCWeakPtr<InvalidationHandler> const& handler);
    static void removeInvalidationCb(PxWeakHndl<PxCompositeMatrixNode> const& node,
                                     RCWeakPtr<InvalidationHandler> const& handler);
    static void addGlobalInvalidationCb(PxStrongHndl<PxCompositeMatrixNode> const& node,
                                        RCWeakPtr<InvalidationHandler> const& handler);
    static void addGlobalInvalidationCb(PxWeakHndl<PxCompositeMatrixNode> const& node,
                                        RCWeakPtr<InvalidationHandler> const& handler);
    static void removeGlobalInvalidationCb(PxStrongHndl<PxCompositeMatrixNode> const& node,
                                           RCWeakPtr<InvalidationHandler> const& handler);
    static void removeGlobalInvalidationCb(PxWeakHndl<PxCompositeMatrixNode> const& node,
                                           RCWeakPtr<InvalidationHandler> const& handler);

    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& origin, int stream) override;

protected:
    void init() override;

private:
    using Handlers = std::vector<RCWeakPtr<InvalidationHandler>>;
    static void add(std::unique_ptr<Handlers>& list, RCWeakPtr<InvalidationHandler> const& h);
    static void remove(std::unique_ptr<Handlers>& list, RCWeakPtr<InvalidationHandler> const& h);
    static void notify(std::unique_ptr<Handlers> const& list, PxValidityInterval const& interval);
    using Side = PxNodePtr<PxAffineMatrixProtocol const>;
    // Once the node has left the graph its sides stay for whoever still reads it, and changes
    // are ignored.
    void replace(Side& side, PxUPtr<PxAffineMatrixProtocol const> const& node);

    Side _localMatrixNode;
    Side _globalMatrixNode;
    std::unique_ptr<Handlers> _invalidationCbs;
    std::unique_ptr<Handlers> _globalInvalidationCbs;
};

// Adds or removes a handler of a composite matrix node, as a mutation.
class VN_EXPORT SetInvalidationCbRequest final : public PxMutationRequest {
public:
    enum Action : std::int32_t { ADD = 0, REMOVE = 1 };
    enum List : std::int32_t { ALL = 0, GLOBAL = 1 };

    SetInvalidationCbRequest(PxNodePtr<PxCompositeMatrixNode> node,
                             RCWeakPtr<PxCompositeMatrixNode::InvalidationHandler> handler,
                             Action action, List list)
        : _node(std::move(node)), _handler(std::move(handler)), _action(action), _list(list) {}
    // A node that has gone by then leaves nothing to do.
    void performExecute() override;

private:
    PxNodePtr<PxCompositeMatrixNode> _node;
    RCWeakPtr<PxCompositeMatrixNode::InvalidationHandler> _handler;
    std::int32_t _action;
    std::int32_t _list;
};

} // namespace Vn
