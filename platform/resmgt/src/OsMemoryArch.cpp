#include "OsMemoryArch.h"

#include <unistd.h>

namespace Vn {

OsMemoryArch::OsMemoryArch() {
    long page = ::sysconf(_SC_PAGESIZE);
    long line = ::sysconf(_SC_LEVEL1_DCACHE_LINESIZE);
    _pageSize = page > 0 ? static_cast<std::size_t>(page) : 4096;
    _cacheLineSize = line > 0 ? static_cast<std::size_t>(line) : 64;
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f"))
        _simdAlignment = 64;
    else if (__builtin_cpu_supports("avx"))
        _simdAlignment = 32;
    else
        _simdAlignment = 16;
}

OsMemoryArch const& OsMemoryArch::getInstance() {
    static OsMemoryArch const instance;
    return instance;
}

} // namespace Vn
