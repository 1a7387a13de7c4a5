#pragma once

#include "StatMemPool.h"

#include <cstddef>
#include <vector>

namespace Vn {

// Hands out storage from StatMemPool to standard containers.
template <class T>
class StatMemPoolAllocator {
public:
    using value_type = T;

    StatMemPoolAllocator() noexcept = default;
    template <class U>
    StatMemPoolAllocator(StatMemPoolAllocator<U> const&) noexcept {}

    T* allocate(std::size_t n) { return static_cast<T*>(StatMemPool::alloc(n * sizeof(T))); }
    void deallocate(T* p, std::size_t n) noexcept { StatMemPool::free(p, n * sizeof(T)); }

    template <class U>
    bool operator==(StatMemPoolAllocator<U> const&) const noexcept {
        return true;
    }
};

// A vector whose storage comes from StatMemPool.
template <class T>
class StatResVector {
    using Storage = std::vector<T, StatMemPoolAllocator<T>>;

public:
    using iterator = typename Storage::iterator;
    using const_iterator = typename Storage::const_iterator;

    StatResVector() noexcept = default;
    explicit StatResVector(std::size_t n, T const& value = T()) : _v(n, value) {}

    T& operator[](std::size_t i) noexcept { return _v[i]; }
    T const& operator[](std::size_t i) const noexcept { return _v[i]; }
    T& front() noexcept { return _v.front(); }
    T const& front() const noexcept { return _v.front(); }
    T& back() noexcept { return _v.back(); }
    T const& back() const noexcept { return _v.back(); }
    iterator begin() noexcept { return _v.begin(); }
    const_iterator begin() const noexcept { return _v.begin(); }
    iterator end() noexcept { return _v.end(); }
    const_iterator end() const noexcept { return _v.end(); }
    std::size_t size() const noexcept { return _v.size(); }
    bool empty() const noexcept { return _v.empty(); }

    void push_back(T const& value) { _v.push_back(value); }
    void push_back(T&& value) { _v.push_back(static_cast<T&&>(value)); }
    void pop_back() noexcept { _v.pop_back(); }
    void clear() noexcept { _v.clear(); }

private:
    Storage _v;
};

} // namespace Vn
