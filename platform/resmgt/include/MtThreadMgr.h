#pragma once

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

class VN_EXPORT MtThreadMgr {
public:
    static MtThreadMgr& getInstance();

    // Processors this process may run on.
    int getNbProcessors() const noexcept { return _nbProcessors; }
    // The calling thread's pool and index; null on a thread no pool started.
    MtThreadInfo const* findCurrentThread() const noexcept;

private:
    MtThreadMgr();
    friend class MtThreadPool;
    static void setCurrentThread(MtThreadInfo const* info) noexcept;

    int _nbProcessors;
};

} // namespace Vn
