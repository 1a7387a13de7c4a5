#pragma once

#include <atomic>

namespace Vn {

// An integer count safe from any thread.
template <class T>
class LkCounter {
public:
    constexpr LkCounter(T v = T()) noexcept : _v(v) {}
    LkCounter(LkCounter const& o) noexcept : _v(o.get()) {}
    LkCounter& operator=(LkCounter const& o) noexcept {
        _v.store(o.get(), std::memory_order_relaxed);
        return *this;
    }

    T get() const noexcept { return _v.load(std::memory_order_acquire); }
    void set(T v) noexcept { _v.store(v, std::memory_order_release); }
    // Each returns the new value.
    T increment() noexcept { return _v.fetch_add(1, std::memory_order_relaxed) + 1; }
    T decrement() noexcept { return _v.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    T add(T d) noexcept { return _v.fetch_add(d, std::memory_order_acq_rel) + d; }
    bool compareAndSwap(T& expected, T desired) noexcept {
        return _v.compare_exchange_weak(expected, desired, std::memory_order_acq_rel,
                                        std::memory_order_acquire);
    }

private:
    std::atomic<T> _v;
};

namespace RCDetail {
// Uniform access to the two kinds of reference count: atomic and plain.
template <class C>
struct CountOps;

template <class T>
struct CountOps<LkCounter<T>> {
    static T increment(LkCounter<T>& c) noexcept { return c.increment(); }
    static T decrement(LkCounter<T>& c) noexcept { return c.decrement(); }
    static T get(LkCounter<T> const& c) noexcept { return c.get(); }
    static void setFirst(LkCounter<T>& c) noexcept { c.set(1); }
};

template <>
struct CountOps<int> {
    static int increment(int& c) noexcept { return ++c; }
    static int decrement(int& c) noexcept { return --c; }
    static int get(int const& c) noexcept { return c; }
    static void setFirst(int& c) noexcept { c = 1; }
};
} // namespace RCDetail

} // namespace Vn
