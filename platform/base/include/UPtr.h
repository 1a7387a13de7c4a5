#pragma once

#include "OPtr.h"
#include "RCExUtil.h"

#include <cstddef>
#include <type_traits>
#include <typeinfo>

namespace Vn {

// A pointer that owns nothing: it names an object whose owner lives elsewhere. Dereferencing a
// null UPtr raises ExNullPtr, as the owning handles do.
template <class T>
class UPtr {
public:
    UPtr() noexcept = default;
    UPtr(std::nullptr_t) noexcept {}
    UPtr(T* p) noexcept : _p(p) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    UPtr(UPtr<U> const& o) noexcept : _p(o.get()) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    UPtr(OPtr<U> const& o) noexcept : _p(o.get()) {}

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
    bool operator==(UPtr<U> const& o) const noexcept {
        return _p == o.get();
    }
    bool operator==(std::nullptr_t) const noexcept { return _p == nullptr; }

private:
    T* _p = nullptr;
};

} // namespace Vn
