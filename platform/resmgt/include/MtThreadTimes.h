#pragma once

#include "VnExport.h"

#include <cstdint>

namespace Vn {

// CPU time of the calling thread.
class VN_EXPORT MtThreadTimes {
public:
    // Nanoseconds of CPU time the calling thread has used.
    using Split = std::int64_t;

    static Split timeSplit() noexcept;
    // Seconds between two splits of the same thread.
    static double cpuTime(Split from, Split to) noexcept { return double(to - from) * 1e-9; }
};

} // namespace Vn
