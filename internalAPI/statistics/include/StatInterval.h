#pragma once

#include "DtRefTime.h"
#include "RCBase.h"
#include "StatResourceType.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

class StatThreadLocal;

// A span of time between a start and a stop. Copies share their state until one of them
// changes, so a recorded sample keeps the times it had. Not to be shared between threads.
class VN_EXPORT StatInterval {
public:
    StatInterval() noexcept;
    StatInterval(StatInterval const& o) noexcept;
    StatInterval(StatInterval&& o) noexcept;
    StatInterval& operator=(StatInterval const& o);
    StatInterval& operator=(StatInterval&& o);
    ~StatInterval();

    // Now.
    void start();
    void setStart(DtRefTime const& time);
    void stop();
    void setStop(DtRefTime const& time);
    // The clock's origin until set.
    DtRefTime getStart() const noexcept;
    DtRefTime getStop() const noexcept;

    // Stops, then records into the calling thread's store.
    void stop(StatResourceType type);
    void setStop(DtRefTime const& time, StatResourceType type);
    // Records a sample into the calling thread's store, or into the given one.
    void recordStat(StatResourceType type) const;
    void recordStat(UPtr<StatThreadLocal> store, StatResourceType type) const;

private:
    class Imp;
    RCShdPtr<Imp> _imp;
};

} // namespace Vn
