#pragma once

#include "Assertions.h"
#include "PxRequestMgr.h"
#include "PxValidityInterval.h"
#include "RCBase.h"
#include "VnExport.h"

#include <atomic>
#include <type_traits>
#include <utility>
#include <vector>

namespace Vn {

// Two counts: the plain RCBase count keeps the memory (workers' PxNodePtr), the strong count in
// a separate RCSWCount says who outside wants the object to exist. All strong references together
// hold one plain reference; when the last goes, destroy() runs, then that reference is let go.
class VN_EXPORT RCStrongBaseWithDestroy : public RCBase<LkCounter<int>> {
public:
    RCSWCount* getCounter() const noexcept { return _counter; }
    int getStrongCount() const noexcept { return _counter->getStrongCount(); }

    void addStrongRef() const noexcept {
        if (_counter->addStrong() == 1)
            addRef();
    }
    void releaseStrongRef() const;
    // Only while the strong count is above 0.
    bool tryAddStrongRef() const noexcept { return _counter->tryAddStrong(); }

protected:
    RCStrongBaseWithDestroy() : _counter(new RCSWCount) {}
    RCStrongBaseWithDestroy(RCStrongBaseWithDestroy const&) = delete;
    ~RCStrongBaseWithDestroy() override;
    virtual void destroy() = 0;

private:
    RCSWCount* _counter;
};

// Which side of the engine a handle belongs to, checked on every use.
struct VN_EXPORT PxHandleCheck {
    // Tool side: not on a worker.
    static void outside();
    // Engine side: on a worker.
    static void worker();
};

template <class T>
class PxNodePtr;
template <class T>
class PxStrongHndl;
template <class T>
class PxWeakHndl;

// A plain pointer to a node, for workers and for the fields of requests. Owns nothing.
template <class T>
class VN_EXPORT PxUPtr {
public:
    PxUPtr() noexcept = default;
    PxUPtr(std::nullptr_t) noexcept {}
    // From a plain pointer: on a worker only.
    explicit PxUPtr(T* p) : _p(p) { PxHandleCheck::worker(); }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxUPtr(PxUPtr<U> const& o) noexcept : _p(o.get()) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxUPtr(PxNodePtr<U> const& o) noexcept : _p(o.get()) {}
    // From the tool side's handles, to build a request: outside the workers only.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxUPtr(PxStrongHndl<U> const& o) : _p(o.get()) {
        PxHandleCheck::outside();
    }

    // For the engine's own plumbing, where the pointer comes from the graph itself.
    static PxUPtr unchecked(T* p) noexcept {
        PxUPtr u;
        u._p = p;
        return u;
    }

    T* get() const noexcept { return _p; }
    bool isNull() const noexcept { return _p == nullptr; }
    explicit operator bool() const noexcept { return _p != nullptr; }
    T* operator->() const {
        if (!_p) [[unlikely]]
            RCExUtil::throwExNullPtr(typeid(T).name());
        return _p;
    }
    T& operator*() const { return *operator->(); }
    template <class U>
    bool operator==(PxUPtr<U> const& o) const noexcept {
        return static_cast<void const*>(asNode()) == static_cast<void const*>(o.asNode());
    }
    // The node itself, whatever protocol T names.
    auto asNode() const noexcept;

private:
    T* _p = nullptr;
};

// A counted pointer for workers: keeps the node's memory alive.
template <class T>
class VN_EXPORT PxNodePtr {
public:
    PxNodePtr() noexcept = default;
    PxNodePtr(std::nullptr_t) noexcept {}
    // From a plain pointer: on a worker only.
    explicit PxNodePtr(T* p) : _p(p) {
        PxHandleCheck::worker();
        acquire();
    }
    PxNodePtr(PxNodePtr const& o) noexcept : _p(o._p) { acquire(); }
    PxNodePtr(PxNodePtr&& o) noexcept : _p(std::exchange(o._p, nullptr)) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxNodePtr(PxNodePtr<U> const& o) noexcept : _p(o.get()) {
        acquire();
    }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxNodePtr(PxStrongHndl<U> const& o) noexcept : _p(o.get()) {
        acquire();
    }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxNodePtr(PxUPtr<U> const& o) noexcept : _p(o.get()) {
        acquire();
    }
    ~PxNodePtr() { drop(); }
    // Assignment through a local, not a by-value parameter (see RCWeakPtr).
    PxNodePtr& operator=(PxNodePtr const& o) noexcept {
        PxNodePtr(o).swap(*this);
        return *this;
    }
    PxNodePtr& operator=(PxNodePtr&& o) noexcept {
        PxNodePtr(std::move(o)).swap(*this);
        return *this;
    }

    T* get() const noexcept { return _p; }
    bool isNull() const noexcept { return _p == nullptr; }
    explicit operator bool() const noexcept { return _p != nullptr; }
    void reset() noexcept { PxNodePtr().swap(*this); }
    void swap(PxNodePtr& o) noexcept { std::swap(_p, o._p); }
    T* operator->() const {
        if (!_p) [[unlikely]]
            RCExUtil::throwExNullPtr(typeid(T).name());
        return _p;
    }
    T& operator*() const { return *operator->(); }

private:
    void acquire() const noexcept {
        if (_p)
            _p->addRef();
    }
    void drop() noexcept {
        if (_p)
            std::exchange(_p, nullptr)->release();
    }
    T* _p = nullptr;
};

// The tool side's owning handle: while one exists, the node is part of the graph.
template <class T>
class VN_EXPORT PxStrongHndl {
public:
    PxStrongHndl() { PxHandleCheck::outside(); }
    PxStrongHndl(std::nullptr_t) { PxHandleCheck::outside(); }
    explicit PxStrongHndl(T* p) : _p(p) {
        PxHandleCheck::outside();
        if (_p)
            _p->addStrongRef();
    }
    PxStrongHndl(PxStrongHndl const& o) : _p(o._p) {
        PxHandleCheck::outside();
        if (_p)
            _p->addStrongRef();
    }
    PxStrongHndl(PxStrongHndl&& o) : _p(std::exchange(o._p, nullptr)) { PxHandleCheck::outside(); }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    PxStrongHndl(PxStrongHndl<U> const& o) : PxStrongHndl(o.get()) {}
    PxStrongHndl& operator=(PxStrongHndl const& o) {
        PxStrongHndl(o).swap(*this);
        return *this;
    }
    PxStrongHndl& operator=(PxStrongHndl&& o) {
        PxStrongHndl(std::move(o)).swap(*this);
        return *this;
    }
    ~PxStrongHndl() noexcept(false) {
        if (std::uncaught_exceptions() == 0)
            PxHandleCheck::outside();
        if (_p)
            std::exchange(_p, nullptr)->releaseStrongRef();
    }
    void swap(PxStrongHndl& o) {
        PxHandleCheck::outside();
        std::swap(_p, o._p);
    }
    void reset() { PxStrongHndl().swap(*this); }

    T* get() const noexcept { return _p; }
    bool isNull() const noexcept { return _p == nullptr; }
    explicit operator bool() const noexcept { return _p != nullptr; }
    T* operator->() const {
        if (!_p) [[unlikely]]
            RCExUtil::throwExNullPtr(typeid(T).name());
        return _p;
    }
    T& operator*() const { return *operator->(); }

private:
    template <class U>
    friend class PxWeakHndl;
    struct Adopt {};
    PxStrongHndl(T* p, Adopt) : _p(p) { PxHandleCheck::outside(); }
    T* _p = nullptr;
};

// The tool side's weak handle: holds the counter only; lock() gives a strong handle while the
// node exists.
template <class T>
class VN_EXPORT PxWeakHndl {
public:
    PxWeakHndl() { PxHandleCheck::outside(); }
    PxWeakHndl(PxStrongHndl<T> const& s) { assign(s.get()); }
    PxWeakHndl(PxWeakHndl const& o) { assign(o._p, o._counter); }
    PxWeakHndl& operator=(PxWeakHndl const& o) {
        PxWeakHndl(o).swap(*this);
        return *this;
    }
    ~PxWeakHndl() noexcept(false) {
        if (std::uncaught_exceptions() == 0)
            PxHandleCheck::outside();
        if (_counter)
            _counter->releaseWeak();
    }
    void swap(PxWeakHndl& o) {
        PxHandleCheck::outside();
        std::swap(_p, o._p);
        std::swap(_counter, o._counter);
    }

    // Raises the strong count by compare-and-swap, only while it is above 0.
    PxStrongHndl<T> lock() const {
        PxHandleCheck::outside();
        if (_counter && _counter->tryAddStrong())
            return PxStrongHndl<T>(_p, typename PxStrongHndl<T>::Adopt{});
        return PxStrongHndl<T>();
    }
    bool isExpired() const noexcept { return !_counter || _counter->getStrongCount() == 0; }

private:
    void assign(T* p, RCSWCount* counter = nullptr) {
        PxHandleCheck::outside();
        _p = p;
        _counter = counter ? counter : (p ? p->getCounter() : nullptr);
        if (_counter)
            _counter->addWeak();
    }
    T* _p = nullptr;
    RCSWCount* _counter = nullptr;
};

// A processing node. Nodes are made with new, given an Init, and finished by the static init,
// which calls the virtual init() once the object is complete. A node knows its parents (the
// nodes that registered it as a child) so that invalidation can travel up the graph.
class VN_EXPORT PxNode : public RCStrongBaseWithDestroy {
public:
    struct Init {
        // The kind of node, for monitors.
        char const* typeName = "PxNode";
    };

    explicit PxNode(Init const& init);
    ~PxNode() override;

    static void init(PxStrongHndl<PxNode> const& node);
    static void init(PxNodePtr<PxNode> const& node);

    char const* getTypeName() const noexcept { return _typeName; }
    PxNode const* getParent(int index) const;
    int getNbParents() const;

    // Starts a wave of invalidation at this node: the node and, through the parents that accept
    // it, everything above it learn that results over `interval` for `stream` are stale. A wave
    // reaches each node once per interval and stream, however many ways lead there, and walks
    // graphs of any depth. An interval with a NaN end raises PxEx::ExInvalidParameter.
    void invalidate(PxValidityInterval const& interval, int stream) const;
    // A node's own reaction to an invalidation that reaches it; `from` is the child that sent it,
    // null at the start of the wave.
    virtual void invalidateAndReinitialize(PxValidityInterval const& interval,
                                           PxUPtr<PxNode const> const& from, int stream);
    // Asked before an invalidation reaches this node: false stops it here; the node may remap
    // the interval and stream.
    virtual bool propagateAndRemapInvalidation(PxValidityInterval* interval,
                                               PxUPtr<PxNode const> const& from, int* stream) const;
    // The same during one wave, different from one wave to the next.
    static int getInvalidationId() noexcept;

    void registerChild(PxNodePtr<PxNode const> const& child) const;
    void unregisterChild(PxNodePtr<PxNode const> const& child) const;

protected:
    // For protocols, which derive virtually from PxNode: the most derived node gives the Init.
    PxNode() : PxNode(Init{}) {}
    virtual void init();
    // Leaves the graph: the node stops being a parent of its children.
    void destroy() override;
    // True once destroy has run: the node has left the graph for good, whichever thread let it go.
    bool hasLeftGraph() const;

private:
    struct Arrival {
        PxValidityInterval interval;
        int stream;
    };
    // Records what wave `wave` brings; false when it brought the same before.
    bool arrive(int wave, PxValidityInterval const& interval, int stream) const;
    void lock() const noexcept;
    void unlock() const noexcept;
    // Takes one entry of this node out of child's parents.
    void forgetParent(PxNode const& child) const;

    char const* _typeName;
    mutable std::atomic_flag _lock = ATOMIC_FLAG_INIT;
    mutable std::vector<PxNode const*> _parents;
    mutable std::vector<PxNodePtr<PxNode const>> _children;
    // Set by destroy, under the lock: the node has left the graph for good.
    bool _destroyed = false;
    // What the current wave has brought to this node, under the lock.
    mutable int _arrivalsWave = -1;
    mutable std::vector<Arrival> _arrivals;
};

// While it lives, keeps a strong handle on every node finished on this thread (through
// PxNode::init), so that whoever builds a processing graph holds all of it and not only the
// nodes it hands out: a node no handle holds leaves its children's parent lists. Nests.
class VN_EXPORT PxNodeCollector {
public:
    PxNodeCollector() noexcept;
    PxNodeCollector(PxNodeCollector const&) = delete;
    PxNodeCollector& operator=(PxNodeCollector const&) = delete;
    ~PxNodeCollector();
    // The nodes finished so far; the collector goes on collecting.
    std::vector<PxStrongHndl<PxNode const>> take() { return std::exchange(_nodes, {}); }

private:
    friend class PxNode;
    PxNodeCollector* _previous;
    std::vector<PxStrongHndl<PxNode const>> _nodes;
};

template <class T>
auto PxUPtr<T>::asNode() const noexcept {
    return static_cast<PxNode const*>(_p);
}

} // namespace Vn
