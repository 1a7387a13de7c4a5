#include "LkCondVar.h"
#include "Assertions.h"
#include "LkFutex.h"

#include <climits>

namespace Vn {

void LkWaitable::wait(LkGuard& guard) {
    LkLock& lock = guard.getLock();
    VN_ASSERT(lock.isHeldByCurrentThread());
    // Read under the lock: a signal given after the waker changed the condition under the same
    // lock moves the sequence on, and the sleep below then returns at once.
    _sleepers.fetch_add(1, std::memory_order_relaxed);
    std::uint32_t seq = _sequence.load(std::memory_order_relaxed);
    lock.unlock();
    LkFutex::wait(_sequence, seq);
    _sleepers.fetch_sub(1, std::memory_order_relaxed);
    lock.lock();
}

void LkWaitable::wake(int count) noexcept {
    _sequence.fetch_add(1, std::memory_order_seq_cst);
    if (_sleepers.load(std::memory_order_seq_cst) > 0)
        LkFutex::wake(_sequence, count);
}

LkCondVar::LkCondVar(char const* name) : _name(name ? name : "") {}

LkCondVar::~LkCondVar() = default;

void LkCondVar::signal() noexcept {
    wake(1);
}

void LkCondVar::broadcast() noexcept {
    wake(INT_MAX);
}

} // namespace Vn
