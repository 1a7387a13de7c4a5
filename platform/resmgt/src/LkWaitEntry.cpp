#include "LkWaitEntry.h"
#include "LkFutex.h"

namespace Vn {

namespace {
// About tens of microseconds: a worker parked between two requests of a stream, or a caller
// waiting for a short request, is woken without a system call.
constexpr int kSpins = 1000;
} // namespace

LkWaitEntry& LkWaitEntry::getEntry() {
    thread_local LkWaitEntry entry;
    return entry;
}

bool LkWaitEntry::tryWait() noexcept {
    std::uint32_t s = SIGNALLED;
    return _state.compare_exchange_strong(s, IDLE, std::memory_order_acquire,
                                          std::memory_order_relaxed);
}

void LkWaitEntry::wait() noexcept {
    // Only this thread leaves SIGNALLED or enters SLEEPING, so the state is IDLE or SIGNALLED.
    for (int i = 0; i < kSpins; ++i) {
        if (tryWait())
            return;
        LkFutex::pause();
    }
    std::uint32_t s = IDLE;
    if (_state.compare_exchange_strong(s, SLEEPING, std::memory_order_acquire,
                                       std::memory_order_acquire)) {
        _nbSleeps.fetch_add(1, std::memory_order_relaxed);
        do {
            LkFutex::wait(_state, SLEEPING);
        } while (_state.load(std::memory_order_acquire) == SLEEPING);
    }
    // The state is SIGNALLED now, and no other thread moves it away from there.
    _state.store(IDLE, std::memory_order_relaxed);
}

void LkWaitEntry::signal() noexcept {
    if (_state.exchange(SIGNALLED, std::memory_order_release) == SLEEPING)
        LkFutex::wake(_state, 1);
}

} // namespace Vn
