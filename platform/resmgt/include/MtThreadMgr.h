#pragma once

#include "MtThread.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class MtThreadPool;

// What a pool thread knows of itself.
class VN_EXPORT MtThreadInfo {
public:
    MtThreadInfo(MtThreadPool& pool, int index) noexcept : _pool(pool), _index(index) {}
    MtThreadPool& getPool() const noexcept { return _pool; }
    std::string const& getPoolName() const noexcept;
    int getIndex() const noexcept { return _index; }

private:
    MtThreadPool& _pool;
    int _index;
};

// The process's processors and the pools it started.
class VN_EXPORT MtThreadMgr {
public:
    static MtThreadMgr& getInstance();

    // Processors this process may run on.
    int getNbProcessors() const noexcept { return _nbProcessors; }
    // The calling thread's pool and index; null on a thread no pool started.
    MtThreadInfo const* findCurrentThread() const noexcept;
    // The calling thread's id; 0 on a thread no pool started.
    MtThread::Id getCurrentThreadId() const noexcept;
    // The thread of that id while it runs; a handle that names no thread otherwise.
    MtThread findThread(MtThread::Id id) const;

private:
    MtThreadMgr();
    friend class MtThreadPool;
    static void setCurrentThread(MtThreadInfo const* info) noexcept;
    // Gives the calling thread an id under which other threads find it.
    static MtThread::Id registerCurrentThread();
    static void unregisterCurrentThread() noexcept;

    int _nbProcessors;
};

} // namespace Vn
