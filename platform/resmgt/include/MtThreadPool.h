#pragma once

#include "LkLock.h"
#include "MtThread.h"
#include "OPtr.h"
#include "VnExport.h"

#include <atomic>
#include <cstddef>
#include <pthread.h>
#include <string>
#include <vector>

namespace Vn {

class ExBase;
class MtThreadInfo;

// A fixed set of named threads that each run main(index). stop() raises the stopping flag, calls
// notifyStop() so that the threads wake up and see it, and returns once every thread has ended.
// A subclass whose threads sleep must override notifyStop(), and must stop the pool in its own
// destructor: the base destructor can only call the base notification.
class VN_EXPORT MtThreadPool {
public:
    // The second and fourth arguments are reserved and must be 0. With keepOnProcessor, thread i
    // is kept on the i-th allowed processor, modulo their count.
    MtThreadPool(char const* name, int reserved, bool keepOnProcessor, int reserved2);
    MtThreadPool(MtThreadPool const&) = delete;
    MtThreadPool& operator=(MtThreadPool const&) = delete;
    virtual ~MtThreadPool();

    // Starts n threads, numbered 0 to n - 1. The pool must not be running.
    void start(int n);
    // Stops and joins the threads; nothing when the pool does not run. Not from a thread of this
    // pool. Raises again what a thread's main let out, once all have ended.
    void stop();
    bool isRunning() const noexcept { return _running.load(std::memory_order_acquire); }
    bool isStopping() const noexcept { return _stopping.load(std::memory_order_acquire); }
    // Threads of the last start, 0 before the first.
    int getNbThreads() const noexcept { return _nbThreads.load(std::memory_order_relaxed); }
    // The id under which MtThreadMgr finds thread index, 0 while that thread does not run. Not
    // while start() runs on another thread.
    MtThread::Id getThreadId(int index) const;
    std::string const& getName() const noexcept { return _name; }
    bool getKeepOnProcessor() const noexcept { return _keepOnProcessor; }
    // The stack of each thread of the next start, in bytes; 0 leaves the system's default. Stacks
    // are reserved address space, committed only as they are touched. Not while the pool runs.
    void setStackSize(std::size_t bytes);
    std::size_t getStackSize() const noexcept { return _stackSize; }

protected:
    // The body of thread index.
    virtual void main(int index) = 0;
    // Hooks for subclasses that hand out tasks, around each task; the pool itself calls neither.
    virtual void doneTask();
    virtual void obtainTask();
    // Called by stop() after the stopping flag is set; must wake every thread.
    virtual void notifyStop();

private:
    void run(int index);

    std::string _name;
    bool _keepOnProcessor;
    std::size_t _stackSize = 0;
    std::atomic<bool> _running{false};
    std::atomic<bool> _stopping{false};
    std::atomic<int> _nbThreads{0};
    LkLock _controlLock;
    std::vector<pthread_t> _threads;
    std::vector<OPtr<MtThreadInfo>> _infos;
    std::vector<std::atomic<MtThread::Id>> _threadIds;
    LkLock _failureLock;
    OPtr<ExBase> _failure;
};

} // namespace Vn
