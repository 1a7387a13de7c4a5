#pragma once

#include "VnExport.h"

#include <cstdint>

namespace Vn {

// CPU time of the whole process: every thread, those that have ended included.
class VN_EXPORT PrProcessTimes {
public:
    // Nanoseconds of CPU time the process has used.
    using Split = std::int64_t;

    static Split timeSplit() noexcept;
    // Seconds between two splits.
    static double cpuTime(Split from, Split to) noexcept { return double(to - from) * 1e-9; }
};

} // namespace Vn
