#include "OsMemoryArch.h"

#include <fstream>
#include <string>
#include <unistd.h>

namespace Vn {

namespace {

// A control group's memory limit in a file; 0 when absent or unlimited ("max").
std::uint64_t limitIn(std::string const& file) {
    std::ifstream in(file);
    std::uint64_t v = 0;
    return in >> v ? v : 0;
}

// The smallest memory limit of the control groups holding this process, version 2 or 1; 0 when
// none. A container sees its own group at the root of the mount, whatever /proc says.
std::uint64_t controlGroupLimit() {
    std::uint64_t best = 0;
    auto consider = [&](std::uint64_t v) {
        if (v > 0 && (best == 0 || v < best))
            best = v;
    };
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        std::size_t const a = line.find(':');
        std::size_t const b = line.find(':', a + 1);
        if (a == std::string::npos || b == std::string::npos)
            continue;
        std::string const controllers = line.substr(a + 1, b - a - 1);
        std::string const path = line.substr(b + 1);
        if (controllers.empty())
            consider(limitIn("/sys/fs/cgroup" + path + "/memory.max"));
        else if (controllers == "memory")
            consider(limitIn("/sys/fs/cgroup/memory" + path + "/memory.limit_in_bytes"));
    }
    consider(limitIn("/sys/fs/cgroup/memory.max"));
    consider(limitIn("/sys/fs/cgroup/memory/memory.limit_in_bytes"));
    return best;
}

} // namespace

OsMemoryArch::OsMemoryArch() {
    long page = ::sysconf(_SC_PAGESIZE);
    long line = ::sysconf(_SC_LEVEL1_DCACHE_LINESIZE);
    _pageSize = page > 0 ? static_cast<std::size_t>(page) : 4096;
    _cacheLineSize = line > 0 ? static_cast<std::size_t>(line) : 64;
    long const pages = ::sysconf(_SC_PHYS_PAGES);
    _usableMemory = pages > 0 ? static_cast<std::uint64_t>(pages) * _pageSize : 0;
    std::uint64_t const limit = controlGroupLimit();
    if (limit > 0 && (_usableMemory == 0 || limit < _usableMemory))
        _usableMemory = limit;
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
