#include "MtThreadPool.h"
#include "Assertions.h"
#include "ExBase.h"
#include "MtThreadMgr.h"

#include <algorithm>
#include <cstring>
#include <pthread.h>
#include <sched.h>

namespace Vn {

namespace {

// Thread names are limited to 15 bytes; the index is kept whole, the pool name cut.
void setThreadName(std::string const& pool, int index) {
    std::string suffix = "#" + std::to_string(index);
    std::string name = pool.substr(0, 15 - std::min<std::size_t>(suffix.size(), 15)) + suffix;
    name.resize(std::min<std::size_t>(name.size(), 15));
    pthread_setname_np(pthread_self(), name.c_str());
}

void keepOnProcessor(int index) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0)
        return;
    int count = CPU_COUNT(&allowed);
    if (count <= 0)
        return;
    int wanted = index % count;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed))
            continue;
        if (wanted-- == 0) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(cpu, &one);
            pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
            return;
        }
    }
}

struct ThreadStart {
    MtThreadPool* pool;
    int index;
    void (*run)(MtThreadPool*, int);
};

void* threadEntry(void* arg) {
    ThreadStart const start = *static_cast<ThreadStart*>(arg);
    delete static_cast<ThreadStart*>(arg);
    start.run(start.pool, start.index);
    return nullptr;
}

} // namespace

MtThreadPool::MtThreadPool(char const* name, int reserved, bool keepOnProcessor, int reserved2)
    : _name(name ? name : ""), _keepOnProcessor(keepOnProcessor),
      _controlLock("MtThreadPool::_controlLock"), _failureLock("MtThreadPool::_failureLock") {
    VN_ASSERT(reserved == 0 && reserved2 == 0);
}

MtThreadPool::~MtThreadPool() {
    if (!isRunning())
        return;
    try {
        stop();
    } catch (ExBase const& e) {
        ExStdout::printAtomically("Thread pool '" + _name +
                                  "' ended with: " + e.getDetailedReason());
    }
}

void MtThreadPool::setStackSize(std::size_t bytes) {
    LkGuard guard(_controlLock);
    VN_ASSERT(!isRunning());
    _stackSize = bytes;
}

void MtThreadPool::start(int n) {
    VN_ASSERT(n >= 1);
    LkGuard guard(_controlLock);
    VN_ASSERT(!isRunning());
    _stopping.store(false, std::memory_order_relaxed);
    _infos.clear();
    for (int i = 0; i < n; ++i)
        _infos.push_back(makeOPtr<MtThreadInfo>(*this, i));
    _threadIds = std::vector<std::atomic<MtThread::Id>>(static_cast<std::size_t>(n));
    _nbThreads.store(n, std::memory_order_relaxed);
    _running.store(true, std::memory_order_release);
    _threads.reserve(static_cast<std::size_t>(n));
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    int error = _stackSize ? pthread_attr_setstacksize(&attr, _stackSize) : 0;
    for (int i = 0; i < n && error == 0; ++i) {
        auto* arg = new ThreadStart{this, i, [](MtThreadPool* pool, int index) {
                                        pool->run(index);
                                    }};
        pthread_t thread;
        error = pthread_create(&thread, &attr, threadEntry, arg);
        if (error == 0)
            _threads.push_back(thread);
        else
            delete arg;
    }
    pthread_attr_destroy(&attr);
    if (error != 0) {
        // Take back the threads already running before reporting.
        _stopping.store(true, std::memory_order_release);
        notifyStop();
        for (pthread_t t : _threads)
            pthread_join(t, nullptr);
        _threads.clear();
        _running.store(false, std::memory_order_release);
        std::string const stack =
            _stackSize ? " with stacks of " + std::to_string(_stackSize) + " bytes" : "";
        VN_THROW_MSG(ExInternalError, "Thread pool '" + _name + "' could not start its " +
                                          std::to_string(n) + " threads" + stack + ": " +
                                          std::strerror(error));
    }
}

void MtThreadPool::stop() {
    MtThreadInfo const* self = MtThreadMgr::getInstance().findCurrentThread();
    VN_ASSERT(self == nullptr || &self->getPool() != this);
    LkGuard guard(_controlLock);
    if (!isRunning())
        return;
    _stopping.store(true, std::memory_order_release);
    notifyStop();
    for (pthread_t t : _threads)
        pthread_join(t, nullptr);
    _threads.clear();
    _running.store(false, std::memory_order_release);
    OPtr<ExBase> failure;
    {
        LkGuard failureGuard(_failureLock);
        failure = std::move(_failure);
    }
    if (failure)
        failure->raise();
}

MtThread::Id MtThreadPool::getThreadId(int index) const {
    VN_ASSERT(index >= 0 && index < getNbThreads());
    return _threadIds[static_cast<std::size_t>(index)].load(std::memory_order_acquire);
}

void MtThreadPool::doneTask() {}

void MtThreadPool::obtainTask() {}

void MtThreadPool::notifyStop() {}

void MtThreadPool::run(int index) {
    setThreadName(_name, index);
    if (_keepOnProcessor)
        keepOnProcessor(index);
    MtThreadMgr::setCurrentThread(_infos[static_cast<std::size_t>(index)].get());
    std::atomic<MtThread::Id>& id = _threadIds[static_cast<std::size_t>(index)];
    try {
        id.store(MtThreadMgr::registerCurrentThread(), std::memory_order_release);
        main(index);
    } catch (...) {
        OPtr<ExBase> failure = ExWrapper::cloneCurrent();
        LkGuard guard(_failureLock);
        if (!_failure)
            _failure = std::move(failure);
    }
    id.store(0, std::memory_order_release);
    MtThreadMgr::unregisterCurrentThread();
    MtThreadMgr::setCurrentThread(nullptr);
}

} // namespace Vn
