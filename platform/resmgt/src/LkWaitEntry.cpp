#include "LkWaitEntry.h"
#include "LkFutex.h"

#include <thread>

namespace Vn {

namespace {
// About ten microseconds in all: a worker parked between two requests of a stream, or a caller
// waiting for a short request, is woken without a system call. After the first microsecond the
// spin gives the processor away between looks: the thread that will signal may be waiting for
// this very core, and would otherwise run only once the whole spin is spent.
constexpr int kPauseSpins = 128;
constexpr int kYields = 16;
constexpr int kSpinsPerYield = 32;
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
    for (int i = 0; i < kPauseSpins; ++i) {
        if (tryWait())
            return;
        LkFutex::pause();
    }
    for (int y = 0; y < kYields; ++y) {
        std::this_thread::yield();
        for (int i = 0; i < kSpinsPerYield; ++i) {
            if (tryWait())
                return;
            LkFutex::pause();
        }
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
