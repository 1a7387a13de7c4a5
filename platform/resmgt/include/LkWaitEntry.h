#pragma once

#include "LkSListNode.h"
#include "VnExport.h"

#include <atomic>
#include <cstdint>

namespace Vn {

// A thread's place to sleep until another thread wakes it. Its first word is an LkSListNode, so
// a sleeper can be kept on an intrusive stack inside a state value. A signal given before the
// wait is kept: the next wait returns at once. Signals given before one wait returns merge into
// one wake-up.
class VN_EXPORT LkWaitEntry : public LkSListNode {
public:
    // The calling thread's entry; it lives as long as the thread.
    static LkWaitEntry& getEntry();

    LkWaitEntry() noexcept = default;
    LkWaitEntry(LkWaitEntry const&) = delete;
    LkWaitEntry& operator=(LkWaitEntry const&) = delete;

    // Only the entry's own thread waits.
    void wait() noexcept;
    // Takes a pending signal without sleeping; false when there is none.
    bool tryWait() noexcept;
    // Any thread.
    void signal() noexcept;

    // How many times a wait really went to sleep.
    std::uint64_t getNbSleeps() const noexcept { return _nbSleeps.load(std::memory_order_relaxed); }

private:
    enum : std::uint32_t { IDLE = 0, SIGNALLED = 1, SLEEPING = 2 };
    std::atomic<std::uint32_t> _state{IDLE};
    std::atomic<std::uint64_t> _nbSleeps{0};
};

} // namespace Vn
