#pragma once

#include "PrProcessTimes.h"
#include "RCBase.h"
#include "StatResourceType.h"
#include "VnExport.h"

namespace Vn {

// A reading of the process's CPU clock; the time used between two samples is
// PrProcessTimes::cpuTime of their splits. Copies share their state until one of them changes.
// Not to be shared between threads.
class VN_EXPORT StatProcessCPUUsage {
public:
    StatProcessCPUUsage() noexcept;
    StatProcessCPUUsage(StatProcessCPUUsage const& o) noexcept;
    StatProcessCPUUsage(StatProcessCPUUsage&& o) noexcept;
    StatProcessCPUUsage& operator=(StatProcessCPUUsage const& o);
    StatProcessCPUUsage& operator=(StatProcessCPUUsage&& o);
    ~StatProcessCPUUsage();

    void timeSplit();
    // 0 until read.
    PrProcessTimes::Split getTimeSplit() const noexcept;

    // Reads, then records into the calling thread's store.
    void timeSplit(StatResourceType type);
    void recordStat(StatResourceType type) const;

private:
    class Imp;
    RCShdPtr<Imp> _imp;
};

} // namespace Vn
