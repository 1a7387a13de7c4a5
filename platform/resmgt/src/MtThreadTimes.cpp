#include "MtThreadTimes.h"

#include <time.h>

namespace Vn {

MtThreadTimes::Split MtThreadTimes::timeSplit() noexcept {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return Split(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

} // namespace Vn
