#pragma once

#include "DtRefTime.h"
#include "RCBase.h"
#include "StatResourceType.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

class StatThreadLocal;

// One moment. Copies share their state until one of them changes, so a recorded sample keeps
// the time it had. Not to be shared between threads.
class VN_EXPORT StatTimeStamp {
public:
    StatTimeStamp() noexcept;
    StatTimeStamp(StatTimeStamp const& o) noexcept;
    StatTimeStamp(StatTimeStamp&& o) noexcept;
    StatTimeStamp& operator=(StatTimeStamp const& o);
    StatTimeStamp& operator=(StatTimeStamp&& o);
    ~StatTimeStamp();

    // Now.
    void timeStamp();
    void setTimeStamp(DtRefTime const& time);
    // The clock's origin until set.
    DtRefTime getTimeStamp() const noexcept;

    // Sets, then records into the calling thread's store.
    void timeStamp(StatResourceType type);
    void setTimeStamp(DtRefTime const& time, StatResourceType type);
    // Records a sample into the calling thread's store, or into the given one.
    void recordStat(StatResourceType type) const;
    void recordStat(UPtr<StatThreadLocal> store, StatResourceType type) const;

private:
    class Imp;
    RCShdPtr<Imp> _imp;
};

} // namespace Vn
