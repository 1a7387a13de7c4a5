#include "LkSema.h"
#include "Assertions.h"
#include "LkFutex.h"

namespace Vn {

LkSema::LkSema(char const* name, int count) : _name(name ? name : "") {
    VN_ASSERT(count >= 0);
    _count.store(static_cast<std::uint32_t>(count), std::memory_order_relaxed);
}

LkSema::~LkSema() = default;

bool LkSema::tryWait() noexcept {
    std::uint32_t c = _count.load(std::memory_order_relaxed);
    while (c > 0) {
        if (_count.compare_exchange_weak(c, c - 1, std::memory_order_acquire,
                                         std::memory_order_relaxed))
            return true;
    }
    return false;
}

void LkSema::wait() noexcept {
    while (!tryWait()) {
        // A poster reads _sleepers after raising the count, a sleeper reads the count after
        // raising _sleepers: one of them sees the other, so no wake-up is missed.
        _sleepers.fetch_add(1, std::memory_order_seq_cst);
        if (_count.load(std::memory_order_seq_cst) == 0)
            LkFutex::wait(_count, 0);
        _sleepers.fetch_sub(1, std::memory_order_relaxed);
    }
}

void LkSema::post() noexcept {
    _count.fetch_add(1, std::memory_order_seq_cst);
    if (_sleepers.load(std::memory_order_seq_cst) > 0)
        LkFutex::wake(_count, 1);
}

} // namespace Vn
