#include "PrProcessTimes.h"

#include <time.h>

namespace Vn {

PrProcessTimes::Split PrProcessTimes::timeSplit() noexcept {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return Split(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

} // namespace Vn
