#include "LkLock.h"
#include "Assertions.h"

namespace Vn {

LkLock::LkLock(char const* name) : _name(name ? name : "") {}

LkLock::~LkLock() = default;

bool LkLock::lock() {
    if (isHeldByCurrentThread())
        return false;
    _mutex.lock();
    _owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    return true;
}

bool LkLock::tryLock() {
    if (isHeldByCurrentThread())
        return false;
    if (!_mutex.try_lock())
        return false;
    _owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    return true;
}

void LkLock::unlock() {
    VN_ASSERT(isHeldByCurrentThread());
    _owner.store(std::thread::id(), std::memory_order_relaxed);
    _mutex.unlock();
}

} // namespace Vn
