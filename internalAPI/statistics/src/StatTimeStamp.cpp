#include "StatTimeStamp.h"
#include "StatMgr.h"
#include "StatThreadLocal.h"
#include "StatValueImp.h"

namespace Vn {

class StatTimeStamp::Imp : public StatValueImp {
public:
    Imp* clone() const override { return new Imp(*this); }
    DtRefTime _time;
};

StatTimeStamp::StatTimeStamp() noexcept = default;
StatTimeStamp::StatTimeStamp(StatTimeStamp const& o) noexcept = default;
StatTimeStamp::StatTimeStamp(StatTimeStamp&& o) noexcept = default;
StatTimeStamp& StatTimeStamp::operator=(StatTimeStamp const& o) = default;
StatTimeStamp& StatTimeStamp::operator=(StatTimeStamp&& o) = default;
StatTimeStamp::~StatTimeStamp() = default;

void StatTimeStamp::timeStamp() {
    setTimeStamp(DtRefTime::now());
}

void StatTimeStamp::setTimeStamp(DtRefTime const& time) {
    statWritable(_imp)._time = time;
}

DtRefTime StatTimeStamp::getTimeStamp() const noexcept {
    return _imp ? _imp.get()->_time : DtRefTime();
}

void StatTimeStamp::timeStamp(StatResourceType type) {
    timeStamp();
    recordStat(type);
}

void StatTimeStamp::setTimeStamp(DtRefTime const& time, StatResourceType type) {
    setTimeStamp(time);
    recordStat(type);
}

void StatTimeStamp::recordStat(StatResourceType type) const {
    statRecord(StatMgr::getContainer(type), *this);
}

void StatTimeStamp::recordStat(UPtr<StatThreadLocal> store, StatResourceType type) const {
    statRecord(store->getContainer(type), *this);
}

} // namespace Vn
