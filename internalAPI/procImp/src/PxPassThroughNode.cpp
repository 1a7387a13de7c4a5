#include "PxPassThroughNode.h"

#include "DtTime.h"
#include "PxImageProtocol.h"

#include <algorithm>
#include <string>
#include <typeinfo>

namespace Vn {

template <class Protocol, class Child>
PxPassThroughBaseNode<Protocol, Child>::PxPassThroughBaseNode(
    PxNode::Init const& init, PxStrongHndl<Child const> const& child)
    : PxNode(init), _child(child) {
    VN_ASSERT(!_child.isNull());
}

template <class Protocol, class Child>
PxPassThroughBaseNode<Protocol, Child>::~PxPassThroughBaseNode() = default;

template <class Protocol, class Child>
void PxPassThroughBaseNode<Protocol, Child>::init() {
    PxNode::init();
    this->registerChild(PxNodePtr<PxNode const>(_child));
}

template <class Protocol, class Child>
void PxPassThroughBaseNode<Protocol, Child>::setChild(PxUPtr<PxNode const> const& child) {
    VN_ASSERT(!child.isNull());
    auto const* typed = dynamic_cast<Child const*>(child.get());
    if (!typed) {
        PxNode const& actual = *child.get();
        RCExUtil::throwExCastFailed(typeid(actual).name(), typeid(Child).name());
    }
    setChildTyped(PxUPtr<Child const>(typed));
}

template <class Protocol, class Child>
void PxPassThroughBaseNode<Protocol, Child>::setChildTyped(PxUPtr<Child const> const& child) {
    PxHandleCheck::worker();
    VN_ASSERT(!child.isNull());
    if (child.get() == _child.get())
        return;
    this->unregisterChild(PxNodePtr<PxNode const>(_child));
    _child = PxNodePtr<Child const>(child);
    this->registerChild(PxNodePtr<PxNode const>(_child));
    this->invalidate(PxValidityInterval::getFull(), -2);
}

template <class Protocol, class Child>
void PxPassThroughBaseNode<Protocol, Child>::addInvalidateCb(
    RCWeakPtr<InvalidationHandler> const& handler) {
    PxHandleCheck::worker();
    auto const target = handler.lock();
    if (!target)
        return; // nothing to call
    LkGuard guard(_lock);
    if (!_dispatcher)
        _dispatcher = std::make_unique<std::vector<RCWeakPtr<InvalidationHandler>>>();
    bool const known = std::any_of(_dispatcher->begin(), _dispatcher->end(),
                                   [&](auto const& w) { return w.lock().get() == target.get(); });
    if (!known)
        _dispatcher->push_back(handler);
}

template <class Protocol, class Child>
void PxPassThroughBaseNode<Protocol, Child>::removeInvalidateCb(
    RCWeakPtr<InvalidationHandler> const& handler) {
    PxHandleCheck::worker();
    LkGuard guard(_lock);
    if (!_dispatcher)
        return;
    auto target = handler.lock();
    std::erase_if(*_dispatcher, [&](auto const& w) {
        auto strong = w.lock();
        return !strong || strong.get() == target.get();
    });
}

template <class Protocol, class Child>
void PxPassThroughBaseNode<Protocol, Child>::invalidateAndReinitialize(
    PxValidityInterval const& interval, PxUPtr<PxNode const> const& from, int stream) {
    PxNode::invalidateAndReinitialize(interval, from, stream);
    InvalidationInfo const info{PxUPtr<PxNode const>::unchecked(this), interval, stream};
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    bool const alone = mgr.isWorkerThreadSequential();
    if (!alone)
        PxHandleCheck::worker();
    // Nothing else runs during a sequential request: no lock is needed then.
    std::unique_ptr<LkGuard> guard;
    if (!alone)
        guard = std::make_unique<LkGuard>(_lock);
    if (!_dispatcher)
        return;
    // Copied first: a handler may subscribe or unsubscribe while it is called.
    std::vector<RCWeakPtr<InvalidationHandler>> handlers = *_dispatcher;
    bool pruned = false;
    for (auto const& w : handlers) {
        if (auto strong = w.lock())
            strong->execute(info);
        else
            pruned = true;
    }
    if (pruned)
        std::erase_if(*_dispatcher, [](auto const& w) { return w.isExpired(); });
}

template <class Protocol, class Child>
PxPassThroughNode<Protocol, Child>::PxPassThroughNode(PxNode::Init const& init,
                                                      PxStrongHndl<Child const> const& child)
    : PxNode(init), PxForwarding<Protocol, PxPassThroughBaseNode<Protocol, Child>>(init, child) {}

template <class Protocol>
PxCollapsingPassThroughNode<Protocol>::PxCollapsingPassThroughNode(
    PxNode::Init const& init, PxStrongHndl<Protocol const> const& child)
    : PxNode(init), PxPassThroughNode<Protocol, Protocol>(init, child) {}

template <class Protocol>
bool PxCollapsingPassThroughNode<Protocol>::alreadyPassed(PxValidityInterval const& interval,
                                                          int stream) const {
    return PxNode::getInvalidationId() == _lastId && interval == _lastInterval &&
           _streams.contains(stream);
}

template <class Protocol>
bool PxCollapsingPassThroughNode<Protocol>::propagateAndRemapInvalidation(
    PxValidityInterval* interval, PxUPtr<PxNode const> const&, int* stream) const {
    return !alreadyPassed(*interval, *stream);
}

template <class Protocol>
void PxCollapsingPassThroughNode<Protocol>::invalidateAndReinitialize(
    PxValidityInterval const& interval, PxUPtr<PxNode const> const& from, int stream) {
    if (alreadyPassed(interval, stream))
        return;
    int const id = PxNode::getInvalidationId();
    if (id != _lastId || !(interval == _lastInterval)) {
        _lastId = id;
        _lastInterval = interval;
        _streams.clear();
    }
    _streams.add(stream);
    reinitialize(interval);
    PxPassThroughNode<Protocol, Protocol>::invalidateAndReinitialize(interval, from, stream);
}

template <class Protocol>
void PxCollapsingPassThroughNode<Protocol>::reinitialize(PxValidityInterval const&) {}

template <class Base>
PxImageFormat PxForwarding<PxImageProtocol, Base>::getImageFormat() const {
    return this->getChild()->getImageFormat();
}
template <class Base>
PxRODResult
PxForwarding<PxImageProtocol, Base>::getImageROD(PxTimeStreamContext const& context) const {
    return this->getChild()->getImageROD(context);
}
template <class Base>
PxImageResult
PxForwarding<PxImageProtocol, Base>::getImageResult(PxImageContext const& context) const {
    return this->getChild()->getImageResult(context);
}
template <class Base>
bool PxForwarding<PxImageProtocol, Base>::isChainConnected() const {
    return this->getChild()->isChainConnected();
}
template <class Base>
bool PxForwarding<PxImageProtocol, Base>::producesFullFrames() const {
    return this->getChild()->producesFullFrames();
}
template <class Base>
int PxForwarding<PxImageProtocol, Base>::getNbStreams() const {
    return this->getChild()->getNbStreams();
}

#define VN_PASS_THROUGH(Protocol)                                                                  \
    template class PxPassThroughBaseNode<Protocol, Protocol>;                                      \
    template class PxPassThroughNode<Protocol, Protocol>;                                          \
    template class PxCollapsingPassThroughNode<Protocol>;

VN_PASS_THROUGH(PxAnimValueProtocol<int>)
VN_PASS_THROUGH(PxAnimValueProtocol<double>)
VN_PASS_THROUGH(PxAnimValueProtocol<bool>)
VN_PASS_THROUGH(PxAnimValueProtocol<std::string>)
VN_PASS_THROUGH(PxValueProtocol<DtTime>)
VN_PASS_THROUGH(PxGraphObjIdsProtocol)
VN_PASS_THROUGH(PxAffineMatrix2Protocol)
VN_PASS_THROUGH(PxGeometryProtocol)
VN_PASS_THROUGH(PxCameraProtocol)
VN_PASS_THROUGH(PxMaterialProtocol)
VN_PASS_THROUGH(PxObject3dProtocol)
VN_PASS_THROUGH(PxShape2dProtocol)
template class PxForwarding<PxImageProtocol,
                            PxPassThroughBaseNode<PxImageProtocol, PxImageProtocol>>;
VN_PASS_THROUGH(PxImageProtocol)

} // namespace Vn
