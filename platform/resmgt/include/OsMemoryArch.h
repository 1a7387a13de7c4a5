#pragma once

#include "VnExport.h"

#include <cstddef>
#include <cstdint>

namespace Vn {

// Memory facts of the machine, read once.
class VN_EXPORT OsMemoryArch {
public:
    static OsMemoryArch const& getInstance();

    std::size_t getPageSize() const noexcept { return _pageSize; }
    std::size_t getCacheLineSize() const noexcept { return _cacheLineSize; }
    // Alignment that the widest vector loads of this processor want.
    std::size_t getSimdAlignment() const noexcept { return _simdAlignment; }
    // Bytes of memory this process may use: the machine's, or less when a control group (a
    // batch scheduler's job, a container) limits it. 0 when unknown.
    std::uint64_t getUsableMemory() const noexcept { return _usableMemory; }

private:
    OsMemoryArch();
    std::size_t _pageSize;
    std::size_t _cacheLineSize;
    std::size_t _simdAlignment;
    std::uint64_t _usableMemory;
};

} // namespace Vn
