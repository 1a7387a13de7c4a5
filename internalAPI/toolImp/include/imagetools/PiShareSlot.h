#pragma once

#include "GeRectangle.h"

#include <atomic>
#include <optional>
#include <thread>

namespace Vn {

// Where a tile, a frame or a region was asked, and in which generation of the node's
// invalidations: the tile is (0, 0) for a frame or a region, and the scale 0 for a region.
struct PiShareKey {
    double time = 0.0;
    int scale = 0;
    int stream = 0;
    GePoint<int> tile;
    unsigned generation = 0;
    bool operator==(PiShareKey const&) const = default;
};

// One value kept for the next to ask for it, without a lock. Readers that leave the value in
// place share the slot, so a whole frame read for every tile of it at once is asked once; they
// wait out a writer, which holds the slot only to copy a value in or out. A writer that finds
// the slot in use, or a reader that takes the value and finds it so, does without it, which only
// means asking the graph below again.
template <class Value>
class PiShareSlot {
public:
    void put(PiShareKey const& key, Value const& value) {
        int state = _state.load(std::memory_order_relaxed);
        // Every tile of a gathered frame puts it again; rewriting it would only make its readers
        // wait.
        if (state >= FULL && holds(key))
            return;
        state = _state.load(std::memory_order_relaxed);
        if ((state != EMPTY && state != FULL) ||
            !_state.compare_exchange_strong(state, BUSY, std::memory_order_acquire))
            return;
        _key = key;
        _value = value;
        _state.store(FULL, std::memory_order_release);
    }
    // The value kept under the key; taken, it leaves the slot. A taker also clears a value of
    // an older generation.
    std::optional<Value> get(PiShareKey const& key, bool take) {
        if (!take)
            return read(key);
        int full = FULL;
        if (!_state.compare_exchange_strong(full, BUSY, std::memory_order_acquire))
            return std::nullopt;
        bool const stale = _key.generation != key.generation;
        if (!stale && !(_key == key)) {
            _state.store(FULL, std::memory_order_release);
            return std::nullopt;
        }
        std::optional<Value> r;
        if (!stale)
            r = std::move(_value);
        clear();
        return r;
    }
    void drop() {
        int full = FULL;
        if (_state.compare_exchange_strong(full, BUSY, std::memory_order_acquire))
            clear();
    }

private:
    // FULL + n while n readers copy the value.
    enum : int { BUSY = -1, EMPTY = 0, FULL = 1 };
    // Joins the readers, unless the slot is empty; false then.
    bool enterReader() {
        int state = _state.load(std::memory_order_relaxed);
        for (unsigned spins = 0;;) {
            if (state == BUSY) {
                if (++spins < 64)
                    __builtin_ia32_pause();
                else
                    std::this_thread::yield();
                state = _state.load(std::memory_order_relaxed);
                continue;
            }
            if (state < FULL)
                return false;
            if (_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
                return true;
        }
    }
    void leaveReader() { _state.fetch_sub(1, std::memory_order_release); }
    bool holds(PiShareKey const& key) {
        if (!enterReader())
            return false;
        bool const same = _key == key;
        leaveReader();
        return same;
    }
    std::optional<Value> read(PiShareKey const& key) {
        if (!enterReader())
            return std::nullopt;
        std::optional<Value> r;
        if (_key == key)
            r = _value;
        leaveReader();
        return r;
    }
    void clear() {
        _value = {};
        _state.store(EMPTY, std::memory_order_release);
    }
    std::atomic<int> _state{EMPTY};
    PiShareKey _key;
    Value _value;
};

} // namespace Vn
