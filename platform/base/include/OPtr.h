#pragma once

#include "RCExUtil.h"

#include <cstddef>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace Vn {

// Sole ownership of one object. Dereferencing a null OPtr raises ExNullPtr.
template <class T>
class OPtr {
public:
    OPtr() noexcept = default;
    OPtr(std::nullptr_t) noexcept {}
    explicit OPtr(T* p) noexcept : _p(p) {}
    OPtr(OPtr&& o) noexcept : _p(o.release()) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    OPtr(OPtr<U>&& o) noexcept : _p(o.release()) {}
    OPtr(OPtr const&) = delete;
    OPtr& operator=(OPtr const&) = delete;
    OPtr& operator=(OPtr&& o) noexcept {
        reset(o.release());
        return *this;
    }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    OPtr& operator=(OPtr<U>&& o) noexcept {
        reset(o.release());
        return *this;
    }
    ~OPtr() { delete _p; }

    T* get() const noexcept { return _p; }
    T* release() noexcept { return std::exchange(_p, nullptr); }
    void reset(T* p = nullptr) noexcept { delete std::exchange(_p, p); }
    bool isNull() const noexcept { return _p == nullptr; }
    explicit operator bool() const noexcept { return _p != nullptr; }

    T* operator->() const {
        if (!_p) [[unlikely]]
            RCExUtil::throwExNullPtr(typeid(T).name());
        return _p;
    }
    T& operator*() const { return *operator->(); }

private:
    T* _p = nullptr;
};

// The form in which functions hand ownership back to their caller.
template <class T>
using OPtrRet = OPtr<T>;

template <class T, class... Args>
OPtr<T> makeOPtr(Args&&... args) {
    return OPtr<T>(new T(std::forward<Args>(args)...));
}

// Sole ownership of an array allocated with new[].
template <class T>
class APtr {
public:
    APtr() noexcept = default;
    explicit APtr(T* p) noexcept : _p(p) {}
    explicit APtr(std::size_t n) : _p(new T[n]()) {}
    APtr(APtr&& o) noexcept : _p(std::exchange(o._p, nullptr)) {}
    APtr& operator=(APtr&& o) noexcept {
        reset(std::exchange(o._p, nullptr));
        return *this;
    }
    APtr(APtr const&) = delete;
    APtr& operator=(APtr const&) = delete;
    ~APtr() { delete[] _p; }

    T* get() const noexcept { return _p; }
    T* release() noexcept { return std::exchange(_p, nullptr); }
    void reset(T* p = nullptr) noexcept { delete[] std::exchange(_p, p); }
    bool isNull() const noexcept { return _p == nullptr; }
    T& operator[](std::size_t i) const { return _p[i]; }

private:
    T* _p = nullptr;
};

} // namespace Vn
