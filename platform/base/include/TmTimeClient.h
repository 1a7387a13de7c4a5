#pragma once

#include "DtTime.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

class TmTimeCoordinator;

// The play cursor a coordinator hands its clients: where play stands and how far one step
// goes.
class VN_EXPORT TmIterator {
public:
    constexpr TmIterator() noexcept = default;
    constexpr TmIterator(DtTime time, std::int64_t stepMicroseconds) noexcept
        : _time(time), _step(stepMicroseconds) {}

    DtTime getTime() const noexcept { return _time; }
    std::int64_t getStepMicroseconds() const noexcept { return _step; }
    DtTime peekNext() const noexcept { return DtTime(_time.getMicroseconds() + _step); }
    void setTime(DtTime t) noexcept { _time = t; }

private:
    DtTime _time;
    std::int64_t _step = 0;
};

// Something that follows the time of a coordinator: a view, a player, the editing time. A
// client starts standalone, with a time of its own and no coordinator. Given a coordinator and
// made not standalone, it joins it: its time is the coordinator's, and the coordinator calls
// its hooks when time, range, marks, rates, target or play change. Everything happens on the
// thread that drives the coordinator.
class VN_EXPORT TmTimeClient {
public:
    TmTimeClient(TmTimeClient const&) = delete;
    TmTimeClient& operator=(TmTimeClient const&) = delete;
    // Leaves its coordinator.
    virtual ~TmTimeClient();

    // Clients of higher priority are told first; equal ones in order of joining.
    virtual int getClientPriority() const;
    // The time this client would show next while playing; by default one step on.
    virtual DtTime getNextPlayTime() const;
    virtual void play(TmIterator const& it);
    virtual void playTime(TmIterator const& it);
    virtual void stop();
    // The coordinator was set, replaced or has gone.
    virtual void coordinatorChanged();
    virtual void rangeUpdated();
    virtual void marksUpdated();
    virtual void playingRateUpdated();
    virtual void targetRateUpdated();
    virtual void targetChanged();

    // Null leaves the current coordinator.
    void setMasterCoordinator(TmTimeCoordinator* coordinator);
    TmTimeCoordinator* getMasterCoordinator() const noexcept { return _coordinator; }
    void setStandalone(bool standalone);
    bool isStandalone() const noexcept { return _standalone; }
    // Whether the coordinator drives this client now.
    bool isFollowing() const noexcept { return _coordinator && !_standalone; }

    // The coordinator's time while following, else the client's own.
    DtTime getTime() const;
    // Moves the coordinator while following, else only the client's own time.
    void setTime(DtTime time);

protected:
    TmTimeClient() = default;
    // Called after each change of the time, with getTime() already new.
    virtual void timeUpdated();
    // Called when play begins.
    virtual void playInitiated();

private:
    friend class TmTimeCoordinator;
    void join();
    void leave();

    TmTimeCoordinator* _coordinator = nullptr;
    bool _standalone = true;
    DtTime _ownTime;
};

} // namespace Vn
