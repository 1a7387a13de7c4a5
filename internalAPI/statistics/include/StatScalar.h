#pragma once

#include "RCBase.h"
#include "StatResourceType.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

class StatThreadLocal;

// A count or a level. Copies share their state until one of them is set, so a recorded sample
// keeps the value it had. Not to be shared between threads.
class VN_EXPORT StatScalar {
public:
    StatScalar() noexcept;
    StatScalar(StatScalar const& o) noexcept;
    StatScalar(StatScalar&& o) noexcept;
    StatScalar& operator=(StatScalar const& o);
    StatScalar& operator=(StatScalar&& o);
    ~StatScalar();

    void setScalar(long long value);
    // 0 until set.
    long long getScalar() const noexcept;

    // Sets, then records into the calling thread's store.
    void setScalar(long long value, StatResourceType type);
    // Records a sample into the calling thread's store, or into the given one.
    void recordStat(StatResourceType type) const;
    void recordStat(UPtr<StatThreadLocal> store, StatResourceType type) const;

private:
    class Imp;
    RCShdPtr<Imp> _imp;
};

} // namespace Vn
