#include "TmTimeClient.h"

#include "TmTimeCoordinator.h"

namespace Vn {

TmTimeClient::~TmTimeClient() {
    leave();
}

int TmTimeClient::getClientPriority() const {
    return 0;
}

DtTime TmTimeClient::getNextPlayTime() const {
    if (!isFollowing())
        return _ownTime;
    return DtTime(_coordinator->getTime().getMicroseconds() + _coordinator->getStepMicroseconds());
}

void TmTimeClient::play(TmIterator const&) {}
void TmTimeClient::playTime(TmIterator const&) {}
void TmTimeClient::stop() {}
void TmTimeClient::coordinatorChanged() {}
void TmTimeClient::rangeUpdated() {}
void TmTimeClient::marksUpdated() {}
void TmTimeClient::playingRateUpdated() {}
void TmTimeClient::targetRateUpdated() {}
void TmTimeClient::targetChanged() {}
void TmTimeClient::timeUpdated() {}
void TmTimeClient::playInitiated() {}

void TmTimeClient::setMasterCoordinator(TmTimeCoordinator* coordinator) {
    if (coordinator == _coordinator)
        return;
    // A client that stops following keeps the time where it was.
    if (isFollowing())
        _ownTime = _coordinator->getTime();
    leave();
    _coordinator = coordinator;
    join();
    coordinatorChanged();
}

void TmTimeClient::setStandalone(bool standalone) {
    if (standalone == _standalone)
        return;
    if (standalone && isFollowing())
        _ownTime = _coordinator->getTime();
    leave();
    _standalone = standalone;
    join();
}

DtTime TmTimeClient::getTime() const {
    return isFollowing() ? _coordinator->getTime() : _ownTime;
}

void TmTimeClient::setTime(DtTime time) {
    if (isFollowing()) {
        _coordinator->setTime(time);
        return;
    }
    if (time == _ownTime)
        return;
    _ownTime = time;
    timeUpdated();
}

void TmTimeClient::join() {
    if (isFollowing())
        _coordinator->addClient(this);
}

void TmTimeClient::leave() {
    if (_coordinator)
        _coordinator->removeClient(this);
}

} // namespace Vn
