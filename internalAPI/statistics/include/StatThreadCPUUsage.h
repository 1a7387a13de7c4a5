#pragma once

#include "MtThreadTimes.h"
#include "RCBase.h"
#include "StatResourceType.h"
#include "VnExport.h"

namespace Vn {

class MtThread;

// A reading of one thread's CPU clock; the time used between two samples is
// MtThreadTimes::cpuTime of their splits. Copies share their state until one of them changes.
// Not to be shared between threads.
class VN_EXPORT StatThreadCPUUsage {
public:
    StatThreadCPUUsage() noexcept;
    StatThreadCPUUsage(StatThreadCPUUsage const& o) noexcept;
    StatThreadCPUUsage(StatThreadCPUUsage&& o) noexcept;
    StatThreadCPUUsage& operator=(StatThreadCPUUsage const& o);
    StatThreadCPUUsage& operator=(StatThreadCPUUsage&& o);
    ~StatThreadCPUUsage();

    // Reads the calling thread's clock, or the given thread's.
    void timeSplit();
    void timeSplit(MtThread const& thread);
    // 0 until read.
    MtThreadTimes::Split getTimeSplit() const noexcept;

    // Reads, then records into the calling thread's store.
    void timeSplit(StatResourceType type);
    void timeSplit(MtThread const& thread, StatResourceType type);
    void recordStat(StatResourceType type) const;

private:
    class Imp;
    RCShdPtr<Imp> _imp;
};

} // namespace Vn
