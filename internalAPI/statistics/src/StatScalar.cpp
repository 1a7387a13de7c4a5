#include "StatScalar.h"
#include "StatMgr.h"
#include "StatThreadLocal.h"
#include "StatValueImp.h"

namespace Vn {

class StatScalar::Imp : public StatValueImp {
public:
    Imp* clone() const override { return new Imp(*this); }
    long long _value = 0;
};

StatScalar::StatScalar() noexcept = default;
StatScalar::StatScalar(StatScalar const& o) noexcept = default;
StatScalar::StatScalar(StatScalar&& o) noexcept = default;
StatScalar& StatScalar::operator=(StatScalar const& o) = default;
StatScalar& StatScalar::operator=(StatScalar&& o) = default;
StatScalar::~StatScalar() = default;

void StatScalar::setScalar(long long value) {
    statWritable(_imp)._value = value;
}

long long StatScalar::getScalar() const noexcept {
    return _imp ? _imp.get()->_value : 0;
}

void StatScalar::setScalar(long long value, StatResourceType type) {
    setScalar(value);
    recordStat(type);
}

void StatScalar::recordStat(StatResourceType type) const {
    statRecord(StatMgr::getContainer(type), *this);
}

void StatScalar::recordStat(UPtr<StatThreadLocal> store, StatResourceType type) const {
    statRecord(store->getContainer(type), *this);
}

} // namespace Vn
