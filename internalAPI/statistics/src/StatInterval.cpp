#include "StatInterval.h"
#include "StatMgr.h"
#include "StatThreadLocal.h"
#include "StatValueImp.h"

namespace Vn {

class StatInterval::Imp : public StatValueImp {
public:
    Imp* clone() const override { return new Imp(*this); }
    DtRefTime _start;
    DtRefTime _stop;
};

StatInterval::StatInterval() noexcept = default;
StatInterval::StatInterval(StatInterval const& o) noexcept = default;
StatInterval::StatInterval(StatInterval&& o) noexcept = default;
StatInterval& StatInterval::operator=(StatInterval const& o) = default;
StatInterval& StatInterval::operator=(StatInterval&& o) = default;
StatInterval::~StatInterval() = default;

void StatInterval::start() {
    setStart(DtRefTime::now());
}

void StatInterval::setStart(DtRefTime const& time) {
    statWritable(_imp)._start = time;
}

void StatInterval::stop() {
    setStop(DtRefTime::now());
}

void StatInterval::setStop(DtRefTime const& time) {
    statWritable(_imp)._stop = time;
}

DtRefTime StatInterval::getStart() const noexcept {
    return _imp ? _imp.get()->_start : DtRefTime();
}

DtRefTime StatInterval::getStop() const noexcept {
    return _imp ? _imp.get()->_stop : DtRefTime();
}

void StatInterval::stop(StatResourceType type) {
    stop();
    recordStat(type);
}

void StatInterval::setStop(DtRefTime const& time, StatResourceType type) {
    setStop(time);
    recordStat(type);
}

void StatInterval::recordStat(StatResourceType type) const {
    statRecord(StatMgr::getContainer(type), *this);
}

void StatInterval::recordStat(UPtr<StatThreadLocal> store, StatResourceType type) const {
    statRecord(store->getContainer(type), *this);
}

} // namespace Vn
