#pragma once

#include "LkCounter.h"
#include "RCExUtil.h"
#include "VnExport.h"

#include <cstddef>
#include <typeinfo>
#include <utility>

namespace Vn {

// Intrusive reference count. RCBase<LkCounter<int>> is safe across threads, RCBase<int> is not.
// The count starts at 0; the first RCShdPtr takes it to 1 and the last one deletes the object.
template <class C>
class RCBase {
public:
    void addRef() const noexcept { RCDetail::CountOps<C>::increment(_count); }
    void release() const {
        if (RCDetail::CountOps<C>::decrement(_count) == 0)
            delete this;
    }
    int getRefCount() const noexcept { return RCDetail::CountOps<C>::get(_count); }
    // The first reference of an object no other thread can see yet: a plain store, not a locked
    // increment.
    void addFirstRef() const noexcept { RCDetail::CountOps<C>::setFirst(_count); }

protected:
    RCBase() noexcept = default;
    // A copy is a new object: it starts without references.
    RCBase(RCBase const&) noexcept {}
    RCBase& operator=(RCBase const&) noexcept { return *this; }
    virtual ~RCBase() = default;

private:
    mutable C _count{};
};

// Shared ownership of an object that has addRef/release.
template <class T>
class RCShdPtr {
public:
    RCShdPtr() noexcept = default;
    RCShdPtr(std::nullptr_t) noexcept {}
    RCShdPtr(T* p) noexcept : _p(p) {
        if (_p)
            _p->addRef();
    }
    RCShdPtr(RCShdPtr const& o) noexcept : RCShdPtr(o._p) {}
    template <class U>
    RCShdPtr(RCShdPtr<U> const& o) noexcept : RCShdPtr(o.get()) {}
    RCShdPtr(RCShdPtr&& o) noexcept : _p(std::exchange(o._p, nullptr)) {}
    template <class U>
    RCShdPtr(RCShdPtr<U>&& o) noexcept : _p(o.detach()) {}
    ~RCShdPtr() {
        if (_p)
            _p->release();
    }
    RCShdPtr& operator=(RCShdPtr const& o) {
        RCShdPtr(o).swap(*this);
        return *this;
    }
    RCShdPtr& operator=(RCShdPtr&& o) {
        RCShdPtr(std::move(o)).swap(*this);
        return *this;
    }

    // Takes over a reference the caller already holds.
    static RCShdPtr adopt(T* p) noexcept {
        RCShdPtr r;
        r._p = p;
        return r;
    }
    // Takes the first reference of an object just made, before any other thread sees it.
    static RCShdPtr adoptNew(T* p) noexcept {
        if (p)
            p->addFirstRef();
        return adopt(p);
    }
    T* detach() noexcept { return std::exchange(_p, nullptr); }

    void swap(RCShdPtr& o) noexcept { std::swap(_p, o._p); }
    void reset() { RCShdPtr().swap(*this); }
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
    bool operator==(RCShdPtr<U> const& o) const noexcept {
        return _p == o.get();
    }
    bool operator==(std::nullptr_t) const noexcept { return _p == nullptr; }

private:
    T* _p = nullptr;
};

template <class T, class... Args>
RCShdPtr<T> makeRC(Args&&... args) {
    return RCShdPtr<T>(new T(std::forward<Args>(args)...));
}

// Raises ExCastFailed when the object is not a U.
template <class U, class T>
RCShdPtr<U> rcCast(RCShdPtr<T> const& p) {
    if (!p)
        return {};
    U* u = dynamic_cast<U*>(p.get());
    if (!u)
        RCExUtil::throwExCastFailed(typeid(T).name(), typeid(U).name());
    return RCShdPtr<U>(u);
}

// Null when the object is not a U.
template <class U, class T>
RCShdPtr<U> rcDynamicCast(RCShdPtr<T> const& p) {
    return RCShdPtr<U>(dynamic_cast<U*>(p.get()));
}

template <class C>
class RCSWBase;

// The strong count of an RCSWBase object, which weak pointers read after the object is gone.
// The object holds one weak reference until it dies. An object made by `new` has its count in
// front of it, in the same block, and the block is freed with the last weak reference; others
// have a block of their own.
class VN_EXPORT RCSWCount {
public:
    // A count in a block of its own.
    RCSWCount() noexcept = default;
    RCSWCount(RCSWCount const&) = delete;
    RCSWCount& operator=(RCSWCount const&) = delete;

    int getStrongCount() const noexcept { return _strong.get(); }
    int getWeakCount() const noexcept { return _weak.get(); }
    // The new strong count.
    int addStrong() noexcept { return _strong.increment(); }
    // True when this dropped the last strong reference.
    bool releaseStrong() noexcept { return _strong.decrement() == 0; }
    // Raises the strong count only if it is not 0.
    bool tryAddStrong() noexcept;
    void addWeak() noexcept { _weak.increment(); }
    void releaseWeak() noexcept;
    // Whether the count shares its block with its object.
    bool isInline() const noexcept { return _place == Place::Inline; }

private:
    friend class RCSWBase<LkCounter<int>>;
    enum class Place : unsigned char { Own, Unclaimed, Inline };
    explicit RCSWCount(Place place) noexcept : _place(place) {}
    ~RCSWCount() = default;
    // The count in front of the object at `object` if it was just made by RCSWBase's `new`,
    // else a count of its own.
    static RCSWCount* claim(void const* object);

    LkCounter<int> _strong{0};
    LkCounter<int> _weak{1};
    Place _place = Place::Own;
};

// Atomic strong/weak counting. Only the atomic counter is supported: weak pointers exist to be
// locked from other threads.
template <>
class VN_EXPORT RCSWBase<LkCounter<int>> {
public:
    void addRef() const noexcept { _counter->addStrong(); }
    void release() const {
        if (_counter->releaseStrong())
            delete this;
    }
    int getRefCount() const noexcept { return _counter->getStrongCount(); }
    RCSWCount* getCounter() const noexcept { return _counter; }

    // One block for the object and its count; the count stays when the object goes, until the
    // last weak pointer lets go of it.
    static void* operator new(std::size_t size);
    static void operator delete(void* object) noexcept;

protected:
    RCSWBase() : _counter(RCSWCount::claim(this)) {}
    RCSWBase(RCSWBase const&) : RCSWBase() {}
    RCSWBase& operator=(RCSWBase const&) noexcept { return *this; }
    virtual ~RCSWBase();

private:
    RCSWCount* _counter;
};

// Keeps only the counter; lock() gives a strong pointer while the object lives, else null.
template <class T>
class RCWeakPtr {
public:
    RCWeakPtr() noexcept = default;
    RCWeakPtr(T* p) noexcept { assign(p); }
    RCWeakPtr(RCShdPtr<T> const& p) noexcept { assign(p.get()); }
    RCWeakPtr(RCWeakPtr const& o) noexcept : _p(o._p), _counter(o._counter) {
        if (_counter)
            _counter->addWeak();
    }
    RCWeakPtr(RCWeakPtr&& o) noexcept
        : _p(std::exchange(o._p, nullptr)), _counter(std::exchange(o._counter, nullptr)) {}
    // Copy and move assign through a local: one of our compilers, optimising, dropped the
    // destructor of a by-value parameter, leaking the old weak reference.
    RCWeakPtr& operator=(RCWeakPtr const& o) noexcept {
        RCWeakPtr(o).swap(*this);
        return *this;
    }
    RCWeakPtr& operator=(RCWeakPtr&& o) noexcept {
        RCWeakPtr(std::move(o)).swap(*this);
        return *this;
    }
    ~RCWeakPtr() {
        if (_counter)
            _counter->releaseWeak();
    }

    RCShdPtr<T> lock() const noexcept {
        if (_counter && _counter->tryAddStrong())
            return RCShdPtr<T>::adopt(_p);
        return {};
    }
    bool isExpired() const noexcept { return !_counter || _counter->getStrongCount() == 0; }
    void reset() noexcept { RCWeakPtr().swap(*this); }
    void swap(RCWeakPtr& o) noexcept {
        std::swap(_p, o._p);
        std::swap(_counter, o._counter);
    }

private:
    void assign(T* p) noexcept {
        if (!p)
            return;
        _p = p;
        _counter = p->getCounter();
        _counter->addWeak();
    }
    T* _p = nullptr;
    RCSWCount* _counter = nullptr;
};

} // namespace Vn
