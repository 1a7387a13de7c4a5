#pragma once

#include "OPtr.h"
#include "StatContainerBase.h"
#include "StatResourceType.h"
#include "StatThreadLocal.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

// The calling thread's store of samples, kept in a per-thread slot. Recording takes no lock:
// each thread appends to its own store. A thread's store is deleted when the thread ends.
class VN_EXPORT StatMgr {
public:
    // The calling thread's store, made if it has none.
    static UPtr<StatThreadLocal> getLocalStats();
    // The container of that kind in the calling thread's store, made if needed.
    static UPtr<StatContainerBase> getContainer(StatResourceType type);
    // Whether the calling thread holds a store. Makes nothing.
    static bool hasLocalStats() noexcept;
    // Takes the calling thread's store out of its slot; null when it has none.
    static OPtrRet<StatThreadLocal> releaseLocalStats() noexcept;
    // Null is ignored. Into an empty slot the store moves as it is; otherwise its samples go
    // behind those of the store already there.
    static void appendStats(OPtr<StatThreadLocal> stats);
    // Deletes the calling thread's store, if it has one.
    static void flushStatistics() noexcept;
};

} // namespace Vn
