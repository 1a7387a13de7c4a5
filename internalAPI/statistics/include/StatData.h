#pragma once

#include "LkSListNode.h"
#include "OPtr.h"
#include "StatContainerBase.h"
#include "StatResVector.h"
#include "StatResourceType.h"
#include "UPtr.h"
#include "VnExport.h"

#include <cstddef>

namespace Vn {

// One set of samples: a container slot per statistic kind registered when it was made, each
// null until the kind is first recorded. A kind registered later has no slot here. Linked into
// a StatThreadLocal through its node.
class VN_EXPORT StatData : public LkSListNode {
public:
    static OPtrRet<StatData> create();
    StatData(StatData const&) = delete;
    StatData& operator=(StatData const&) = delete;
    ~StatData();

    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size) noexcept;

    // The container of that kind, made on first use. Raises StatExInvalid for a kind without a
    // slot here.
    UPtr<StatContainerBase> getContainer(StatResourceType type);
    // The container as it is: null when the kind was never recorded here or has no slot.
    UPtr<StatContainerBase const> getContainerConst(StatResourceType type) const;
    // The kinds this set has a slot for: those with an id below this.
    int getNbSlots() const noexcept { return static_cast<int>(_containers.size()); }

private:
    StatData();

    StatResVector<StatContainerBase*> _containers;
};

} // namespace Vn
