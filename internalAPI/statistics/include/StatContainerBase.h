#pragma once

#include "VnExport.h"

#include <cstddef>

namespace Vn {

// The samples of one statistic kind in one StatData. Its memory comes from StatMemPool.
class VN_EXPORT StatContainerBase {
public:
    StatContainerBase() noexcept = default;
    StatContainerBase(StatContainerBase const&) = delete;
    StatContainerBase& operator=(StatContainerBase const&) = delete;
    virtual ~StatContainerBase();

    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size) noexcept;
};

} // namespace Vn
