#include "MtThreadMgr.h"
#include "MtThreadPool.h"

#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <unordered_map>
#include <utility>

namespace Vn {

namespace {
constinit thread_local MtThreadInfo const* t_current = nullptr;
constinit thread_local MtThread::Id t_currentId = 0;

// The CPU clocks of the registered threads by id. Never destroyed, as threads may end after
// static destruction.
struct ThreadRegistry {
    std::mutex _lock;
    std::unordered_map<MtThread::Id, clockid_t> _clocks;
    MtThread::Id _nextId = 1;
};

ThreadRegistry& registry() {
    static ThreadRegistry* r = new ThreadRegistry;
    return *r;
}

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

MtThread::Id MtThreadMgr::getCurrentThreadId() const noexcept {
    return t_currentId;
}

MtThread MtThreadMgr::findThread(MtThread::Id id) const {
    if (id == 0)
        return MtThread();
    ThreadRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r._lock);
    auto it = r._clocks.find(id);
    return it == r._clocks.end() ? MtThread() : MtThread(id, it->second);
}

MtThread::Id MtThreadMgr::registerCurrentThread() {
    clockid_t clock{};
    if (t_currentId != 0 || pthread_getcpuclockid(pthread_self(), &clock) != 0)
        return t_currentId;
    ThreadRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r._lock);
    MtThread::Id id = r._nextId++;
    r._clocks.emplace(id, clock);
    t_currentId = id;
    return id;
}

void MtThreadMgr::unregisterCurrentThread() noexcept {
    MtThread::Id id = std::exchange(t_currentId, 0);
    if (id == 0)
        return;
    ThreadRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r._lock);
    r._clocks.erase(id);
}

} // namespace Vn
