#pragma once

#include "DtTime.h"
#include "DtTimeInterval.h"
#include "Iterator.h"
#include "TmMark.h"
#include "TmTimeClient.h"
#include "VnExport.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Vn {

// One time that several clients follow: the current time, the range it moves in, the marks
// of the timeline, the rates and target of play. Every change tells the clients that follow it,
// through their hooks; a change to the same value tells nobody. Clients may join, leave or
// change the coordinator from inside their hooks: a client that leaves is not called again in
// that round, one that joins is first called in the next. Not safe across threads.
class VN_EXPORT TmTimeCoordinator {
public:
    TmTimeCoordinator();
    TmTimeCoordinator(TmTimeCoordinator const&) = delete;
    TmTimeCoordinator& operator=(TmTimeCoordinator const&) = delete;
    // Clients still following are left without a coordinator and told so.
    ~TmTimeCoordinator();

    // The coordinator of the application's time, created on first use.
    static TmTimeCoordinator& getMaster();

    DtTime getTime() const noexcept { return _time; }
    void setTime(DtTime time);

    // The span play moves in; empty means unbounded.
    DtTimeInterval const& getRange() const noexcept { return _range; }
    void setRange(DtTimeInterval const& range);

    // Frames per second of play; the step of play is one frame. Must be positive.
    double getPlayingRate() const noexcept { return _playingRate; }
    void setPlayingRate(double framesPerSecond);
    // The rate the displayed material was made at.
    double getTargetRate() const noexcept { return _targetRate; }
    void setTargetRate(double framesPerSecond);
    // The name of what is being played.
    std::string const& getTarget() const noexcept { return _target; }
    void setTarget(std::string target);

    // Marks in the order they were added.
    Iterator<TmMark> getMarks() const;
    void addMark(TmMark mark);
    // Removes the first mark of that name; false when there is none.
    bool removeMark(std::string const& name);

    bool isPlaying() const noexcept { return _playing; }
    // Tells every client play(cursor), then playInitiated(). Does nothing while playing.
    void play();
    // One step of play: the time moves one frame, back to the range's start past its end, and
    // each client gets playTime(cursor), then timeUpdated(). Does nothing unless playing.
    void advance();
    // Does nothing unless playing.
    void stop();

    std::int64_t getStepMicroseconds() const noexcept;
    int getNbClients() const noexcept { return static_cast<int>(_clients.size()); }

private:
    friend class TmTimeClient;
    void addClient(TmTimeClient* client);
    void removeClient(TmTimeClient* client);
    bool hasClient(TmTimeClient const* client) const;
    // Calls fn on each client of a copy of the list that is still in the live list.
    template <class Fn>
    void forEachClient(Fn fn);

    DtTime _time;
    DtTimeInterval _range;
    double _playingRate = 24.0;
    double _targetRate = 24.0;
    std::string _target;
    std::vector<TmMark> _marks;
    bool _playing = false;
    TmIterator _cursor;
    std::vector<TmTimeClient*> _clients;
};

} // namespace Vn
