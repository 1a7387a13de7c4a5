#include "PxNode.h"
#include "PxDAGMonitor.h"
#include "PxEx.h"

#include <cmath>

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
    for (auto const& c : _children)
        forgetParent(*c);
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
namespace {
thread_local PxNodeCollector* t_collector = nullptr;
} // namespace

PxNodeCollector::PxNodeCollector() noexcept : _previous(t_collector) {
    t_collector = this;
}

PxNodeCollector::~PxNodeCollector() {
    t_collector = _previous;
}

void PxNode::init(PxStrongHndl<PxNode> const& node) {
    if (PxDAGMonitor* monitor = PxDAGMonitor::tryGetInstance())
        monitor->nodeCreated(PxWeakHndl<PxNode>(node));
    node->init();
    if (t_collector)
        t_collector->_nodes.emplace_back(node);
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

// The tool side may let a node go (destroy) while a worker rewires it: a node that has left the
// graph takes no new child and forgets a lost one quietly, so it keeps no link either way. No
// lock is taken under another's: graphs being edited may hold a cycle for a moment.
void PxNode::registerChild(PxNodePtr<PxNode const> const& child) const {
    VN_ASSERT(!child.isNull());
    lock();
    bool const destroyed = _destroyed;
    if (!destroyed)
        _children.push_back(child);
    unlock();
    if (destroyed)
        return;
    child->lock();
    child->_parents.push_back(this);
    child->unlock();
    // A destroy between the two steps could not see the parent entry: take it back.
    lock();
    bool const lost = _destroyed;
    unlock();
    if (lost)
        forgetParent(*child);
}

void PxNode::unregisterChild(PxNodePtr<PxNode const> const& child) const {
    VN_ASSERT(!child.isNull());
    PxNodePtr<PxNode const> keep; // the child may die with our reference; not under the lock
    lock();
    auto it = std::find_if(_children.begin(), _children.end(),
                           [&](auto const& c) { return c.get() == child.get(); });
    bool const found = it != _children.end();
    bool const destroyed = _destroyed;
    if (found) {
        keep = *it;
        _children.erase(it);
    }
    unlock();
    VN_ASSERT(found || destroyed);
    if (found)
        forgetParent(*child);
}

void PxNode::forgetParent(PxNode const& child) const {
    child.lock();
    auto pit = std::find(child._parents.begin(), child._parents.end(), this);
    if (pit != child._parents.end())
        child._parents.erase(pit);
    child.unlock();
}

void PxNode::destroy() {
    std::vector<PxNodePtr<PxNode const>> children;
    lock();
    _destroyed = true;
    children.swap(_children);
    unlock();
    for (auto const& c : children)
        forgetParent(*c);
}

bool PxNode::hasLeftGraph() const {
    lock();
    bool const gone = _destroyed;
    unlock();
    return gone;
}

int PxNode::getInvalidationId() noexcept {
    return s_invalidationId.load(std::memory_order_acquire);
}

namespace {

// One arrival of a wave at a node, holding the node and the child it comes from for as long as
// it waits: either may lose its last handle on another thread meanwhile. Nodes nobody counts
// (never handed to a counted pointer) are not counted here either.
struct WaveStep {
    PxNode const* node;
    PxNode const* from;
    PxValidityInterval interval;
    int stream;
    bool nodeHeld;
    bool fromHeld;
};

bool holdIfCounted(PxNode const* n) noexcept {
    if (!n || n->getRefCount() <= 0)
        return false;
    n->addRef();
    return true;
}

void letGo(WaveStep const& step) {
    if (step.nodeHeld)
        step.node->release();
    if (step.fromHeld)
        step.from->release();
}

} // namespace

bool PxNode::arrive(int wave, PxValidityInterval const& interval, int stream) const {
    lock();
    if (_arrivalsWave != wave) {
        _arrivalsWave = wave;
        _arrivals.clear();
    }
    bool const seen = std::any_of(_arrivals.begin(), _arrivals.end(), [&](Arrival const& a) {
        return a.stream == stream && a.interval == interval;
    });
    if (!seen)
        _arrivals.push_back(Arrival{interval, stream});
    unlock();
    return !seen;
}

// Iterative: a chain of any length is walked on the heap, depth first, parents in their order.
void PxNode::invalidate(PxValidityInterval const& interval, int stream) const {
    if (std::isnan(interval.getLow()) || std::isnan(interval.getHigh()))
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "An invalidation interval must not have a NaN end");
    int const wave = s_invalidationId.fetch_add(1, std::memory_order_acq_rel) + 1;
    std::vector<WaveStep> todo{WaveStep{this, nullptr, interval, stream, false, false}};
    try {
        while (!todo.empty()) {
            WaveStep const step = todo.back();
            todo.pop_back();
            struct LetGo {
                WaveStep const& s;
                ~LetGo() { letGo(s); }
            } letGoAtEnd{step};
            auto* node = const_cast<PxNode*>(step.node);
            PxValidityInterval iv = step.interval;
            int st = step.stream;
            auto const sender = PxUPtr<PxNode const>::unchecked(step.from);
            if (step.from && !node->propagateAndRemapInvalidation(&iv, sender, &st))
                continue;
            if (!node->arrive(wave, iv, st))
                continue;
            node->invalidateAndReinitialize(iv, sender, st);
            // The parents may change while they react: take them, and hold them, under the lock.
            node->lock();
            std::size_t const first = todo.size();
            for (auto p = node->_parents.rbegin(); p != node->_parents.rend(); ++p) {
                bool const held = holdIfCounted(*p);
                todo.push_back(WaveStep{*p, node, iv, st, held, false});
            }
            node->unlock();
            for (std::size_t i = first; i < todo.size(); ++i)
                todo[i].fromHeld = holdIfCounted(node);
        }
    } catch (...) {
        for (WaveStep const& s : todo)
            letGo(s);
        throw;
    }
}

void PxNode::invalidateAndReinitialize(PxValidityInterval const&, PxUPtr<PxNode const> const&,
                                       int) {}

bool PxNode::propagateAndRemapInvalidation(PxValidityInterval*, PxUPtr<PxNode const> const&,
                                           int*) const {
    return true;
}

} // namespace Vn
