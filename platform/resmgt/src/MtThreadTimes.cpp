#include "MtThreadTimes.h"
#include "MtThread.h"

#include <time.h>

namespace Vn {

MtThreadTimes::Split MtThreadTimes::timeSplit() noexcept {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return Split(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

MtThreadTimes::Split MtThreadTimes::timeSplit(MtThread const& thread) noexcept {
    if (!thread.isValid())
        return 0;
    timespec ts{};
    if (clock_gettime(thread.getCpuClock(), &ts) != 0)
        return 0;
    return Split(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

} // namespace Vn
