#include "StatMgr.h"
#include "LkThreadOpaqueData.h"

#include <utility>

namespace Vn {

namespace {

using Slot = OPtr<StatThreadLocal>;

// The calling thread's slot once made: asking whether a thread has a store then makes nothing.
constinit thread_local Slot* t_slot = nullptr;

void* makeSlot(void*) {
    return new Slot;
}

// Runs when the thread ends; its store goes with it.
void freeSlot(void* pointee, void*) {
    auto* slot = static_cast<Slot*>(pointee);
    if (t_slot == slot)
        t_slot = nullptr;
    delete slot;
}

// Never destroyed: destroying it would delete other threads' stores under them, and threads may
// end after static destruction. Stores freed that late go back to StatMemPool, which lives on.
LkThreadOpaqueData& slots() {
    static LkThreadOpaqueData* data =
        LkThreadOpaqueDataFactory::create("Thread local stats", &makeSlot, &freeSlot).release();
    return *data;
}

Slot& slot() {
    if (!t_slot) [[unlikely]]
        t_slot = static_cast<Slot*>(slots().getPointee());
    return *t_slot;
}

} // namespace

UPtr<StatThreadLocal> StatMgr::getLocalStats() {
    Slot& s = slot();
    if (!s) [[unlikely]]
        s = StatThreadLocal::create();
    return s;
}

UPtr<StatContainerBase> StatMgr::getContainer(StatResourceType type) {
    return getLocalStats()->getContainer(type);
}

bool StatMgr::hasLocalStats() noexcept {
    return t_slot && *t_slot;
}

OPtrRet<StatThreadLocal> StatMgr::releaseLocalStats() noexcept {
    if (!t_slot)
        return nullptr;
    return std::move(*t_slot);
}

void StatMgr::appendStats(OPtr<StatThreadLocal> stats) {
    if (!stats)
        return;
    Slot& s = slot();
    if (!s)
        s = std::move(stats);
    else
        s->appendStats(std::move(stats));
}

void StatMgr::flushStatistics() noexcept {
    if (t_slot)
        t_slot->reset();
}

} // namespace Vn
