#pragma once

#include "LkLock.h"

#include <utility>

namespace Vn {

// A pointer that holds a lock for as long as it lives: the object is reached only under it.
template <class T>
class LkPtr {
public:
    LkPtr(T& object, LkLock& lock) : _object(&object), _lock(&lock), _took(lock.lock()) {}
    LkPtr(LkPtr&& o) noexcept
        : _object(o._object), _lock(o._lock), _took(std::exchange(o._took, false)) {}
    LkPtr(LkPtr const&) = delete;
    LkPtr& operator=(LkPtr const&) = delete;
    LkPtr& operator=(LkPtr&&) = delete;
    ~LkPtr() {
        if (_took)
            _lock->unlock();
    }

    T* get() const noexcept { return _object; }
    T* operator->() const noexcept { return _object; }
    T& operator*() const noexcept { return *_object; }

private:
    T* _object;
    LkLock* _lock;
    bool _took;
};

} // namespace Vn
