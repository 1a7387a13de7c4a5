#pragma once

#include "OPtr.h"
#include "StatContainerBase.h"
#include "StatData.h"
#include "StatResourceType.h"
#include "UPtr.h"
#include "VnExport.h"

#include <cstddef>

namespace Vn {

// A store of samples: an ordered queue of StatData. It belongs to one thread at a time, which
// records into the data at its head; stores handed on with work are appended behind it, so a
// store gathers samples in the order the work was waited for.
class VN_EXPORT StatThreadLocal {
public:
    static OPtrRet<StatThreadLocal> create();
    StatThreadLocal(StatThreadLocal const&) = delete;
    StatThreadLocal& operator=(StatThreadLocal const&) = delete;
    ~StatThreadLocal();

    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size) noexcept;

    // Whether the queue holds any StatData.
    bool hasStatistic() const noexcept { return _head != nullptr; }
    // Takes the StatData at the head; null when there is none.
    OPtrRet<StatData> popStat() noexcept;
    // The container of that kind in the head StatData, made first if the queue is empty.
    UPtr<StatContainerBase> getContainer(StatResourceType type);
    // Moves the other store's queue behind this one's and deletes the emptied store. Null is
    // ignored.
    void appendStats(OPtr<StatThreadLocal> other);

private:
    StatThreadLocal() noexcept = default;

    StatData* _head = nullptr;
    StatData* _tail = nullptr;
};

} // namespace Vn
