#pragma once

#include "MtThreadTimes.h"
#include "RCBase.h"
#include "StatResourceType.h"
#include "VnExport.h"

namespace Vn {

class MtThreadPool;

// A reading of the CPU clock of every thread of a pool, by index. Copies share their state
// until one of them changes. Not to be shared between threads.
class VN_EXPORT StatThreadPoolCPUUsage {
public:
    // The splits are kept in blocks of this many threads.
    static constexpr int kThreadsPerBlock = 341;

    StatThreadPoolCPUUsage() noexcept;
    StatThreadPoolCPUUsage(StatThreadPoolCPUUsage const& o) noexcept;
    StatThreadPoolCPUUsage(StatThreadPoolCPUUsage&& o) noexcept;
    StatThreadPoolCPUUsage& operator=(StatThreadPoolCPUUsage const& o);
    StatThreadPoolCPUUsage& operator=(StatThreadPoolCPUUsage&& o);
    ~StatThreadPoolCPUUsage();

    // Reads the clock of each thread of a pool that has been started; a thread that does not run
    // reads 0.
    void timeSplit(MtThreadPool const& pool);
    // 0 until read.
    int getNbThreads() const noexcept;
    // Takes 0 <= index < getNbThreads().
    MtThreadTimes::Split getTimeSplit(int index) const;

    // Reads, then records into the calling thread's store.
    void timeSplit(MtThreadPool const& pool, StatResourceType type);
    void recordStat(StatResourceType type) const;

private:
    class Imp;
    RCShdPtr<Imp> _imp;
};

} // namespace Vn
