#include "TmTimeCoordinator.h"

#include "Assertions.h"
#include "LkSingleton.h"

#include <algorithm>
#include <cmath>

namespace Vn {

TmTimeCoordinator::TmTimeCoordinator() = default;

TmTimeCoordinator::~TmTimeCoordinator() {
    auto clients = std::move(_clients);
    _clients.clear();
    for (auto* c : clients) {
        c->_ownTime = _time;
        c->_coordinator = nullptr;
        c->coordinatorChanged();
    }
}

TmTimeCoordinator& TmTimeCoordinator::getMaster() {
    return LkSingleton<TmTimeCoordinator>::getInstance();
}

template <class Fn>
void TmTimeCoordinator::forEachClient(Fn fn) {
    auto const clients = _clients;
    for (auto* c : clients)
        if (hasClient(c))
            fn(c);
}

void TmTimeCoordinator::setTime(DtTime time) {
    if (time == _time)
        return;
    _time = time;
    _cursor.setTime(time);
    forEachClient([](TmTimeClient* c) { c->timeUpdated(); });
}

void TmTimeCoordinator::setRange(DtTimeInterval const& range) {
    // Every empty range means the same: no bounds.
    if (range == _range)
        return;
    _range = range;
    forEachClient([](TmTimeClient* c) { c->rangeUpdated(); });
}

void TmTimeCoordinator::setPlayingRate(double framesPerSecond) {
    VN_ASSERT(framesPerSecond > 0.0);
    if (framesPerSecond == _playingRate)
        return;
    _playingRate = framesPerSecond;
    _cursor = TmIterator(_time, getStepMicroseconds());
    forEachClient([](TmTimeClient* c) { c->playingRateUpdated(); });
}

void TmTimeCoordinator::setTargetRate(double framesPerSecond) {
    VN_ASSERT(framesPerSecond > 0.0);
    if (framesPerSecond == _targetRate)
        return;
    _targetRate = framesPerSecond;
    forEachClient([](TmTimeClient* c) { c->targetRateUpdated(); });
}

void TmTimeCoordinator::setTarget(std::string target) {
    if (target == _target)
        return;
    _target = std::move(target);
    forEachClient([](TmTimeClient* c) { c->targetChanged(); });
}

Iterator<TmMark> TmTimeCoordinator::getMarks() const {
    return Iterator<TmMark>::overValues(_marks);
}

void TmTimeCoordinator::addMark(TmMark mark) {
    _marks.push_back(std::move(mark));
    forEachClient([](TmTimeClient* c) { c->marksUpdated(); });
}

bool TmTimeCoordinator::removeMark(std::string const& name) {
    auto it = std::find_if(_marks.begin(), _marks.end(),
                           [&](TmMark const& m) { return m.getName() == name; });
    if (it == _marks.end())
        return false;
    _marks.erase(it);
    forEachClient([](TmTimeClient* c) { c->marksUpdated(); });
    return true;
}

std::int64_t TmTimeCoordinator::getStepMicroseconds() const noexcept {
    return std::llround(1e6 / _playingRate);
}

void TmTimeCoordinator::play() {
    if (_playing)
        return;
    _playing = true;
    _cursor = TmIterator(_time, getStepMicroseconds());
    forEachClient([this](TmTimeClient* c) {
        c->play(_cursor);
        c->playInitiated();
    });
}

void TmTimeCoordinator::advance() {
    if (!_playing)
        return;
    DtTime next = _cursor.peekNext();
    if (!_range.isEmpty() && !(next < _range.getEnd()))
        next = _range.getStart();
    bool const moved = next != _time;
    _time = next;
    _cursor.setTime(next);
    forEachClient([this, moved](TmTimeClient* c) {
        c->playTime(_cursor);
        if (moved)
            c->timeUpdated();
    });
}

void TmTimeCoordinator::stop() {
    if (!_playing)
        return;
    _playing = false;
    forEachClient([](TmTimeClient* c) { c->stop(); });
}

void TmTimeCoordinator::addClient(TmTimeClient* client) {
    if (hasClient(client))
        return;
    int const priority = client->getClientPriority();
    auto pos = std::find_if(_clients.begin(), _clients.end(),
                            [&](TmTimeClient* c) { return c->getClientPriority() < priority; });
    _clients.insert(pos, client);
}

void TmTimeCoordinator::removeClient(TmTimeClient* client) {
    std::erase(_clients, client);
}

bool TmTimeCoordinator::hasClient(TmTimeClient const* client) const {
    return std::find(_clients.begin(), _clients.end(), client) != _clients.end();
}

} // namespace Vn
