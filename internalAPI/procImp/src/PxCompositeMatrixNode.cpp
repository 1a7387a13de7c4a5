#include "PxCompositeMatrixNode.h"

#include "Assertions.h"
#include "PxValueNode.h"

#include <algorithm>

namespace Vn {

PxCompositeMatrixNode::PxCompositeMatrixNode(
    PxNode::Init const& init, PxStrongHndl<PxAffineMatrixProtocol const> const& local,
    PxStrongHndl<PxAffineMatrixProtocol const> const& global)
    : PxNode(init), _localMatrixNode(local), _globalMatrixNode(global) {}

PxCompositeMatrixNode::~PxCompositeMatrixNode() = default;

void PxCompositeMatrixNode::init() {
    PxNode::init();
    if (_localMatrixNode)
        registerChild(PxNodePtr<PxNode const>(_localMatrixNode));
    if (_globalMatrixNode)
        registerChild(PxNodePtr<PxNode const>(_globalMatrixNode));
}

PxResult<GeAffineMatrix3<float>>
PxCompositeMatrixNode::getMatrix(PxTimeContext const& context) const {
    PxResult<GeAffineMatrix3<float>> global;
    if (_globalMatrixNode)
        global = _globalMatrixNode->getMatrix(context);
    if (!_localMatrixNode)
        return global;
    PxResult<GeAffineMatrix3<float>> const local = _localMatrixNode->getMatrix(context);
    return PxResult<GeAffineMatrix3<float>>(
        global.getValue() * local.getValue(),
        global.getValidityInterval().intersect(local.getValidityInterval()));
}

void PxCompositeMatrixNode::replace(Side& side, PxUPtr<PxAffineMatrixProtocol const> const& node) {
    if (side.get() == node.get() || hasLeftGraph())
        return;
    if (side)
        unregisterChild(PxNodePtr<PxNode const>(side));
    side = Side(node);
    if (side)
        registerChild(PxNodePtr<PxNode const>(side));
    invalidate(PxValidityInterval::FULL, -2);
}

void PxCompositeMatrixNode::setLocalMatrixNode(PxUPtr<PxAffineMatrixProtocol const> const& node) {
    replace(_localMatrixNode, node);
}

void PxCompositeMatrixNode::setGlobalMatrixNode(PxUPtr<PxAffineMatrixProtocol const> const& node) {
    if (_globalMatrixNode.get() == node.get() || hasLeftGraph())
        return;
    replace(_globalMatrixNode, node);
    notify(_globalInvalidationCbs, PxValidityInterval::FULL);
}

void PxCompositeMatrixNode::add(std::unique_ptr<Handlers>& list,
                                RCWeakPtr<InvalidationHandler> const& handler) {
    // clang-format off
    VN_ASSERT(PxRequestMgr::getInstance().isWorkerThreadCurrent());
    // clang-format on
    auto const target = handler.lock();
    if (!target)
        return;
    if (!list)
        list = std::make_unique<Handlers>();
    bool const there = std::any_of(list->begin(), list->end(),
                                   [&](auto const& w) { return w.lock().get() == target.get(); });
    if (!there)
        list->push_back(handler);
}

void PxCompositeMatrixNode::remove(std::unique_ptr<Handlers>& list,
                                   RCWeakPtr<InvalidationHandler> const& handler) {
    // clang-format off
    VN_ASSERT(PxRequestMgr::getInstance().isWorkerThreadCurrent());
    // clang-format on
    if (!list)
        return;
    auto const target = handler.lock();
    if (!target)
        return;
    auto const it = std::find_if(list->begin(), list->end(),
                                 [&](auto const& w) { return w.lock().get() == target.get(); });
    if (it != list->end())
        list->erase(it);
}

void PxCompositeMatrixNode::notify(std::unique_ptr<Handlers> const& list,
                                   PxValidityInterval const& interval) {
    if (!list)
        return;
    // By index: a dead handler leaves its place to the next one, and a handler may add to the
    // list while it is called.
    for (std::size_t i = 0; i < list->size();) {
        if (auto strong = (*list)[i].lock()) {
            strong->execute(interval);
            ++i;
        } else {
            list->erase(list->begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

void PxCompositeMatrixNode::addInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler) {
    add(_invalidationCbs, handler);
}
void PxCompositeMatrixNode::removeInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler) {
    remove(_invalidationCbs, handler);
}
void PxCompositeMatrixNode::addGlobalInvalidationCb(RCWeakPtr<InvalidationHandler> const& handler) {
    add(_globalInvalidationCbs, handler);
}
void PxCompositeMatrixNode::removeGlobalInvalidationCb(
    RCWeakPtr<InvalidationHandler> const& handler) {
    remove(_globalInvalidationCbs, handler);
}

void PxCompositeMatrixNode::invalidateAndReinitialize(PxValidityInterval const& interval,
                                                      PxUPtr<PxNode const> const& origin,
                                                      int stream) {
    PxNode::invalidateAndReinitialize(interval, origin, stream);
    notify(_invalidationCbs, interval);
    if (origin && origin.asNode() == static_cast<PxNode const*>(_globalMatrixNode.get()))
        notify(_globalInvalidationCbs, interval);
}

// ---- from outside the workers ----

namespace {

// Holds both nodes until it has run: the caller's handles may go first. The member alone
// invalidates, and only on a real change.
class SetSide final : public PxMutationRequest {
public:
    using Method = void (PxCompositeMatrixNode::*)(PxUPtr<PxAffineMatrixProtocol const> const&);
    SetSide(PxNodePtr<PxCompositeMatrixNode> node, Method method,
            PxNodePtr<PxAffineMatrixProtocol const> side)
        : _node(std::move(node)), _method(method), _side(std::move(side)) {}
    void performExecute() override {
        if (_node->getStrongCount() == 0)
            return; // the node has gone: nothing to change
        ((*_node).*_method)(PxUPtr<PxAffineMatrixProtocol const>(_side));
    }

private:
    PxNodePtr<PxCompositeMatrixNode> _node;
    Method _method;
    PxNodePtr<PxAffineMatrixProtocol const> _side;
};

void sendSide(PxStrongHndl<PxCompositeMatrixNode> const& node,
              PxStrongHndl<PxAffineMatrixProtocol const> const& matrix, SetSide::Method method) {
    if (!node)
        RCExUtil::throwExNullPtr(typeid(PxCompositeMatrixNode).name());
    PxMutationRequest::submit(new SetSide(PxNodePtr<PxCompositeMatrixNode>(node), method,
                                          PxNodePtr<PxAffineMatrixProtocol const>(matrix)));
}

void sendCb(PxStrongHndl<PxCompositeMatrixNode> const& node,
            RCWeakPtr<PxCompositeMatrixNode::InvalidationHandler> const& handler,
            SetInvalidationCbRequest::Action action, SetInvalidationCbRequest::List list) {
    if (!node)
        RCExUtil::throwExNullPtr(typeid(PxCompositeMatrixNode).name());
    PxMutationRequest::submit(new SetInvalidationCbRequest(PxNodePtr<PxCompositeMatrixNode>(node),
                                                           handler, action, list));
}

// Through a weak handle, a node that has gone is left alone.
template <class Send, class... Args>
void sendWeak(PxWeakHndl<PxCompositeMatrixNode> const& node, Send send, Args const&... args) {
    if (auto strong = node.lock())
        send(strong, args...);
}

} // namespace

void PxCompositeMatrixNode::setLocalMatrixNode(
    PxStrongHndl<PxCompositeMatrixNode> const& node,
    PxStrongHndl<PxAffineMatrixProtocol const> const& matrix) {
    sendSide(node, matrix, &PxCompositeMatrixNode::setLocalMatrixNode);
}
void PxCompositeMatrixNode::setLocalMatrixNode(
    PxWeakHndl<PxCompositeMatrixNode> const& node,
    PxStrongHndl<PxAffineMatrixProtocol const> const& matrix) {
    sendWeak(node, sendSide, matrix,
             static_cast<SetSide::Method>(&PxCompositeMatrixNode::setLocalMatrixNode));
}
void PxCompositeMatrixNode::setGlobalMatrixNode(
    PxStrongHndl<PxCompositeMatrixNode> const& node,
    PxStrongHndl<PxAffineMatrixProtocol const> const& matrix) {
    sendSide(node, matrix, &PxCompositeMatrixNode::setGlobalMatrixNode);
}
void PxCompositeMatrixNode::setGlobalMatrixNode(
    PxWeakHndl<PxCompositeMatrixNode> const& node,
    PxStrongHndl<PxAffineMatrixProtocol const> const& matrix) {
    sendWeak(node, sendSide, matrix,
             static_cast<SetSide::Method>(&PxCompositeMatrixNode::setGlobalMatrixNode));
}

#define VN_COMPOSITE_CB(name, action, list)                                                        \
    void PxCompositeMatrixNode::name(PxStrongHndl<PxCompositeMatrixNode> const& node,              \
                                     RCWeakPtr<InvalidationHandler> const& handler) {              \
        sendCb(node, handler, SetInvalidationCbRequest::action, SetInvalidationCbRequest::list);   \
    }                                                                                              \
    void PxCompositeMatrixNode::name(PxWeakHndl<PxCompositeMatrixNode> const& node,                \
                                     RCWeakPtr<InvalidationHandler> const& handler) {              \
        sendWeak(node, sendCb, handler, SetInvalidationCbRequest::action,                          \
                 SetInvalidationCbRequest::list);                                                  \
    }

VN_COMPOSITE_CB(addInvalidationCb, ADD, ALL)
VN_COMPOSITE_CB(removeInvalidationCb, REMOVE, ALL)
VN_COMPOSITE_CB(addGlobalInvalidationCb, ADD, GLOBAL)
VN_COMPOSITE_CB(removeGlobalInvalidationCb, REMOVE, GLOBAL)

#undef VN_COMPOSITE_CB

void SetInvalidationCbRequest::performExecute() {
    if (!_node || _node->getStrongCount() == 0)
        return;
    bool const global = _list == GLOBAL;
    if (_action == ADD) {
        if (global)
            _node->addGlobalInvalidationCb(_handler);
        else
            _node->addInvalidationCb(_handler);
    } else {
        if (global)
            _node->removeGlobalInvalidationCb(_handler);
        else
            _node->removeInvalidationCb(_handler);
    }
}

} // namespace Vn
