#pragma once

#include "VnExport.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace Vn {

// A named mutual-exclusion lock. lock() answers whether this call took the lock: a thread that
// already holds it gets false, and a guard unlocks only what it took, so nesting is safe.
class VN_EXPORT LkLock {
public:
    explicit LkLock(char const* name);
    LkLock(LkLock const&) = delete;
    LkLock& operator=(LkLock const&) = delete;
    ~LkLock();

    bool lock();
    bool tryLock();
    void unlock();
    bool isHeldByCurrentThread() const noexcept {
        return _owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }
    std::string const& getName() const noexcept { return _name; }

private:
    std::mutex _mutex;
    std::atomic<std::thread::id> _owner{};
    std::string _name;
};

// Holds a lock for its own lifetime.
class VN_EXPORT LkGuard {
public:
    explicit LkGuard(LkLock& lock) : _lock(lock), _took(lock.lock()) {}
    LkGuard(LkGuard const&) = delete;
    LkGuard& operator=(LkGuard const&) = delete;
    ~LkGuard() {
        if (_took)
            _lock.unlock();
    }
    bool tookLock() const noexcept { return _took; }
    LkLock& getLock() const noexcept { return _lock; }

private:
    LkLock& _lock;
    bool _took;
};

} // namespace Vn
