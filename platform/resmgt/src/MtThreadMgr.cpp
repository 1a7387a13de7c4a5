#include "MtThreadMgr.h"
#include "MtThreadPool.h"

#include <sched.h>
#include <thread>

namespace Vn {

namespace {
constinit thread_local MtThreadInfo const* t_current = nullptr;

int countProcessors() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof(allowed), &allowed) == 0 && CPU_COUNT(&allowed) > 0)
        return CPU_COUNT(&allowed);
    unsigned n = std::thread::hardware_concurrency();
    return n > 0 ? static_cast<int>(n) : 1;
}
} // namespace

std::string const& MtThreadInfo::getPoolName() const noexcept {
    return _pool.getName();
}

MtThreadMgr::MtThreadMgr() : _nbProcessors(countProcessors()) {}

MtThreadMgr& MtThreadMgr::getInstance() {
    static MtThreadMgr instance;
    return instance;
}

MtThreadInfo const* MtThreadMgr::findCurrentThread() const noexcept {
    return t_current;
}

void MtThreadMgr::setCurrentThread(MtThreadInfo const* info) noexcept {
    t_current = info;
}

} // namespace Vn
