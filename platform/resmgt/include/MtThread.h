#pragma once

#include "VnExport.h"

#include <cstdint>
#include <sys/types.h>

namespace Vn {

class MtThreadMgr;

// A handle on one thread, by which another thread can read its CPU clock (MtThreadTimes). It
// keeps nothing alive: once the thread has ended its clock can no longer be read.
class VN_EXPORT MtThread {
public:
    // Given by MtThreadMgr to each thread of a pool while it runs; 0 names no thread.
    using Id = std::uint64_t;

    // Names no thread.
    MtThread() noexcept = default;
    // The calling thread, with the id the thread manager gave it or 0.
    static MtThread current() noexcept;

    Id getId() const noexcept { return _id; }
    bool isValid() const noexcept { return _valid; }
    clockid_t getCpuClock() const noexcept { return _cpuClock; }

private:
    friend class MtThreadMgr;
    MtThread(Id id, clockid_t cpuClock) noexcept : _id(id), _cpuClock(cpuClock), _valid(true) {}

    Id _id = 0;
    clockid_t _cpuClock = 0;
    bool _valid = false;
};

} // namespace Vn
