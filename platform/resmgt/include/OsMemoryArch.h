#pragma once

#include "VnExport.h"

#include <cstddef>

namespace Vn {

// Memory facts of the machine, read once.
class VN_EXPORT OsMemoryArch {
public:
    static OsMemoryArch const& getInstance();

    std::size_t getPageSize() const noexcept { return _pageSize; }
    std::size_t getCacheLineSize() const noexcept { return _cacheLineSize; }
    // Alignment that the widest vector loads of this processor want.
    std::size_t getSimdAlignment() const noexcept { return _simdAlignment; }

private:
    OsMemoryArch();
    std::size_t _pageSize;
    std::size_t _cacheLineSize;
    std::size_t _simdAlignment;
};

} // namespace Vn
