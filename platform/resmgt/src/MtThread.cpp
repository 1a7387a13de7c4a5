#include "MtThread.h"
#include "MtThreadMgr.h"

#include <pthread.h>

namespace Vn {

MtThread MtThread::current() noexcept {
    clockid_t clock{};
    if (pthread_getcpuclockid(pthread_self(), &clock) != 0)
        return MtThread();
    return MtThread(MtThreadMgr::getInstance().getCurrentThreadId(), clock);
}

} // namespace Vn
