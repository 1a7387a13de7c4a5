#pragma once

#include "VnExport.h"

#include <cstdint>

namespace Vn {

class MtThread;

// CPU time of one thread.
class VN_EXPORT MtThreadTimes {
public:
    // Nanoseconds of CPU time the thread has used.
    using Split = std::int64_t;

    // The calling thread's.
    static Split timeSplit() noexcept;
    // Another thread's, read from any thread while that thread runs; 0 when the handle names no
    // thread or its clock is gone.
    static Split timeSplit(MtThread const& thread) noexcept;
    // Seconds between two splits of the same thread.
    static double cpuTime(Split from, Split to) noexcept { return double(to - from) * 1e-9; }
};

} // namespace Vn
