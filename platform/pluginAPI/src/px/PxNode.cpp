#include "PxNode.h"
#include "PxDAGMonitor.h"

#include <algorithm>
#include <thread>

namespace Vn {

// ---- counts ----

void RCStrongBaseWithDestroy::releaseStrongRef() const {
    if (_counter->releaseStrong()) {
        const_cast<RCStrongBaseWithDestroy*>(this)->destroy();
        release();
    }
}

RCStrongBaseWithDestroy::~RCStrongBaseWithDestroy() {
    _counter->releaseWeak();
}

// ---- handle sides ----

void PxHandleCheck::outside() {
    if (PxRequestMgr::isInitialized())
        VN_ASSERT(!PxRequestMgr::getInstance().isWorkerThreadCurrent());
}

void PxHandleCheck::worker() {
    if (PxRequestMgr::isInitialized())
        VN_ASSERT(PxRequestMgr::getInstance().isWorkerThreadCurrent());
}

// ---- nodes ----

namespace {
std::atomic<int> s_invalidationId{0};
} // namespace

PxNode::PxNode(Init const& init) : _typeName(init.typeName ? init.typeName : "PxNode") {}

PxNode::~PxNode() {
    if (PxDAGMonitor* monitor = PxDAGMonitor::tryGetInstance())
        monitor->nodeDestroyed(this);
    // A node that never had a strong handle was never destroyed: leave the graph now.
    for (auto const& c : _children) {
        c->lock();
        std::erase(c->_parents, this);
        c->unlock();
    }
}

// The graph lists of a node change rarely and are read by one wave at a time: a spin lock
// guards them without the weight of a mutex per node.
void PxNode::lock() const noexcept {
    while (_lock.test_and_set(std::memory_order_acquire))
        std::this_thread::yield();
}

void PxNode::unlock() const noexcept {
    _lock.clear(std::memory_order_release);
}

// Only nodes finished outside the workers are listed by the monitor: a worker holds no handle
// the monitor could take.
void PxNode::init(PxStrongHndl<PxNode> const& node) {
    if (PxDAGMonitor* monitor = PxDAGMonitor::tryGetInstance())
        monitor->nodeCreated(PxWeakHndl<PxNode>(node));
    node->init();
}
void PxNode::init(PxNodePtr<PxNode> const& node) {
    node->init();
}
void PxNode::init() {}

PxNode const* PxNode::getParent(int index) const {
    lock();
    bool const ok = index >= 0 && index < static_cast<int>(_parents.size());
    PxNode const* p = ok ? _parents[static_cast<std::size_t>(index)] : nullptr;
    unlock();
    VN_ASSERT(ok);
    return p;
}

int PxNode::getNbParents() const {
    lock();
    int const n = static_cast<int>(_parents.size());
    unlock();
    return n;
}

void PxNode::registerChild(PxNodePtr<PxNode const> const& child) const {
    VN_ASSERT(!child.isNull());
    lock();
    _children.push_back(child);
    unlock();
    child->lock();
    child->_parents.push_back(this);
    child->unlock();
}

void PxNode::unregisterChild(PxNodePtr<PxNode const> const& child) const {
    VN_ASSERT(!child.isNull());
    PxNodePtr<PxNode const> keep; // the child may die with our reference; not under the lock
    lock();
    auto it = std::find_if(_children.begin(), _children.end(),
                           [&](auto const& c) { return c.get() == child.get(); });
    bool const found = it != _children.end();
    if (found) {
        keep = *it;
        _children.erase(it);
    }
    unlock();
    VN_ASSERT(found);
    child->lock();
    auto pit = std::find(child->_parents.begin(), child->_parents.end(), this);
    if (pit != child->_parents.end())
        child->_parents.erase(pit);
    child->unlock();
}

void PxNode::destroy() {
    std::vector<PxNodePtr<PxNode const>> children;
    lock();
    children.swap(_children);
    unlock();
    for (auto const& c : children) {
        c->lock();
        auto pit = std::find(c->_parents.begin(), c->_parents.end(), this);
        if (pit != c->_parents.end())
            c->_parents.erase(pit);
        c->unlock();
    }
}

int PxNode::getInvalidationId() noexcept {
    return s_invalidationId.load(std::memory_order_acquire);
}

void PxNode::invalidate(PxValidityInterval const& interval, int stream) const {
    s_invalidationId.fetch_add(1, std::memory_order_acq_rel);
    const_cast<PxNode*>(this)->receive(interval, nullptr, stream);
}

void PxNode::invalidateAndReinitialize(PxValidityInterval const&, PxUPtr<PxNode const> const&,
                                       int) {}

bool PxNode::propagateAndRemapInvalidation(PxValidityInterval*, PxUPtr<PxNode const> const&,
                                           int*) const {
    return true;
}

void PxNode::receive(PxValidityInterval const& interval, PxNode const* from, int stream) {
    PxValidityInterval iv = interval;
    int st = stream;
    auto const sender = PxUPtr<PxNode const>::unchecked(from);
    if (from && !propagateAndRemapInvalidation(&iv, sender, &st))
        return;
    int const wave = getInvalidationId();
    if (_lastWave == wave && _lastInterval == iv && _lastStream == st)
        return;
    _lastWave = wave;
    _lastInterval = iv;
    _lastStream = st;
    invalidateAndReinitialize(iv, sender, st);

    // The parents may change while they react; walk a copy.
    lock();
    std::vector<PxNode const*> parents = _parents;
    unlock();
    for (PxNode const* p : parents)
        const_cast<PxNode*>(p)->receive(iv, this, st);
}

} // namespace Vn
