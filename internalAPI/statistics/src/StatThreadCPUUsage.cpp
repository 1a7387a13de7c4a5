#include "StatThreadCPUUsage.h"
#include "MtThread.h"
#include "StatMgr.h"
#include "StatValueImp.h"

namespace Vn {

class StatThreadCPUUsage::Imp : public StatValueImp {
public:
    Imp* clone() const override { return new Imp(*this); }
    MtThreadTimes::Split _split = 0;
};

StatThreadCPUUsage::StatThreadCPUUsage() noexcept = default;
StatThreadCPUUsage::StatThreadCPUUsage(StatThreadCPUUsage const& o) noexcept = default;
StatThreadCPUUsage::StatThreadCPUUsage(StatThreadCPUUsage&& o) noexcept = default;
StatThreadCPUUsage& StatThreadCPUUsage::operator=(StatThreadCPUUsage const& o) = default;
StatThreadCPUUsage& StatThreadCPUUsage::operator=(StatThreadCPUUsage&& o) = default;
StatThreadCPUUsage::~StatThreadCPUUsage() = default;

void StatThreadCPUUsage::timeSplit() {
    MtThreadTimes::Split split = MtThreadTimes::timeSplit();
    statWritable(_imp)._split = split;
}

void StatThreadCPUUsage::timeSplit(MtThread const& thread) {
    MtThreadTimes::Split split = MtThreadTimes::timeSplit(thread);
    statWritable(_imp)._split = split;
}

MtThreadTimes::Split StatThreadCPUUsage::getTimeSplit() const noexcept {
    return _imp ? _imp.get()->_split : 0;
}

void StatThreadCPUUsage::timeSplit(StatResourceType type) {
    timeSplit();
    recordStat(type);
}

void StatThreadCPUUsage::timeSplit(MtThread const& thread, StatResourceType type) {
    timeSplit(thread);
    recordStat(type);
}

void StatThreadCPUUsage::recordStat(StatResourceType type) const {
    statRecord(StatMgr::getContainer(type), *this);
}

} // namespace Vn
