#pragma once

#include <atomic>
#include <climits>
#include <cstdint>

#if defined(__linux__)
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace Vn::LkFutex {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

// Sleeps while word holds expected; may return early. Callers re-check their condition.
inline void wait(std::atomic<std::uint32_t>& word, std::uint32_t expected) noexcept {
#if defined(__linux__)
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, expected,
            nullptr, nullptr, 0);
#else
    word.wait(expected, std::memory_order_relaxed);
#endif
}

// Wakes up to count sleepers of word; INT_MAX wakes them all.
inline void wake(std::atomic<std::uint32_t>& word, int count) noexcept {
#if defined(__linux__)
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, count, nullptr,
            nullptr, 0);
#else
    if (count == 1)
        word.notify_one();
    else
        word.notify_all();
#endif
}

// A short busy wait before sleeping: a wake-up that is about to come costs no system call.
inline void pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

} // namespace Vn::LkFutex
