#include "StatProcessCPUUsage.h"
#include "StatMgr.h"
#include "StatValueImp.h"

namespace Vn {

class StatProcessCPUUsage::Imp : public StatValueImp {
public:
    Imp* clone() const override { return new Imp(*this); }
    PrProcessTimes::Split _split = 0;
};

StatProcessCPUUsage::StatProcessCPUUsage() noexcept = default;
StatProcessCPUUsage::StatProcessCPUUsage(StatProcessCPUUsage const& o) noexcept = default;
StatProcessCPUUsage::StatProcessCPUUsage(StatProcessCPUUsage&& o) noexcept = default;
StatProcessCPUUsage& StatProcessCPUUsage::operator=(StatProcessCPUUsage const& o) = default;
StatProcessCPUUsage& StatProcessCPUUsage::operator=(StatProcessCPUUsage&& o) = default;
StatProcessCPUUsage::~StatProcessCPUUsage() = default;

void StatProcessCPUUsage::timeSplit() {
    PrProcessTimes::Split split = PrProcessTimes::timeSplit();
    statWritable(_imp)._split = split;
}

PrProcessTimes::Split StatProcessCPUUsage::getTimeSplit() const noexcept {
    return _imp ? _imp.get()->_split : 0;
}

void StatProcessCPUUsage::timeSplit(StatResourceType type) {
    timeSplit();
    recordStat(type);
}

void StatProcessCPUUsage::recordStat(StatResourceType type) const {
    statRecord(StatMgr::getContainer(type), *this);
}

} // namespace Vn
