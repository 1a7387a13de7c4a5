#include "RCBase.h"

#include <cstdint>
#include <new>

namespace Vn {

namespace {

// Room in front of an object for its count, keeping the object's alignment.
constexpr std::size_t kCountRoom = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
static_assert(sizeof(RCSWCount) <= kCountRoom);

// The block this thread made last and the size of its object, until the object's RCSWBase
// takes the count or the block is freed unused (a constructor that threw before it).
thread_local RCSWCount* t_madeCount = nullptr;
thread_local std::size_t t_madeSize = 0;

char* objectOf(RCSWCount* count) noexcept {
    return reinterpret_cast<char*>(count) + kCountRoom;
}

} // namespace

RCSWCount* RCSWCount::claim(void const* object) {
    RCSWCount* made = t_madeCount;
    if (made) {
        // The RCSWBase part of an object may lie anywhere in it (a virtual base's).
        auto const at = reinterpret_cast<std::uintptr_t>(object);
        auto const first = reinterpret_cast<std::uintptr_t>(objectOf(made));
        if (at >= first && at < first + t_madeSize) {
            t_madeCount = nullptr;
            made->_place = Place::Inline;
            return made;
        }
    }
    return new RCSWCount(Place::Own);
}

bool RCSWCount::tryAddStrong() noexcept {
    int n = _strong.get();
    // A count that reached 0 never rises again: the object is being destroyed.
    while (n != 0) {
        if (_strong.compareAndSwap(n, n + 1))
            return true;
    }
    return false;
}

void RCSWCount::releaseWeak() noexcept {
    if (_weak.decrement() != 0)
        return;
    if (_place == Place::Own) {
        delete this;
    } else {
        this->~RCSWCount();
        ::operator delete(this);
    }
}

void* RCSWBase<LkCounter<int>>::operator new(std::size_t size) {
    void* block = ::operator new(kCountRoom + size);
    t_madeCount = ::new (block) RCSWCount(RCSWCount::Place::Unclaimed);
    t_madeSize = size;
    return objectOf(t_madeCount);
}

void RCSWBase<LkCounter<int>>::operator delete(void* object) noexcept {
    auto* count =
        std::launder(reinterpret_cast<RCSWCount*>(static_cast<char*>(object) - kCountRoom));
    if (count->_place == RCSWCount::Place::Unclaimed) {
        if (t_madeCount == count)
            t_madeCount = nullptr;
        count->~RCSWCount();
        ::operator delete(count);
        return;
    }
    // The object's own weak reference, held until its memory goes.
    count->releaseWeak();
}

RCSWBase<LkCounter<int>>::~RCSWBase() {
    // An inline count is let go with the object's memory, in operator delete.
    if (!_counter->isInline())
        _counter->releaseWeak();
}

} // namespace Vn
