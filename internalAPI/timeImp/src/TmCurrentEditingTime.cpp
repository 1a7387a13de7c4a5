#include "TmCurrentEditingTime.h"

#include "Assertions.h"
#include "TmTimeCoordinator.h"

namespace Vn {

TmCurrentEditingTime* TmCurrentEditingTime::s_instance = nullptr;

TmCurrentEditingTime::TmCurrentEditingTime() = default;

// The dispatchers take themselves off the handlers still subscribed.
TmCurrentEditingTime::~TmCurrentEditingTime() = default;

void TmCurrentEditingTime::initialize() {
    VN_ASSERT(s_instance == nullptr);
    s_instance = new TmCurrentEditingTime();
    s_instance->setMasterCoordinator(&TmTimeCoordinator::getMaster());
    s_instance->setStandalone(false);
}

void TmCurrentEditingTime::finalize() {
    delete s_instance;
    s_instance = nullptr;
}

TmCurrentEditingTime& TmCurrentEditingTime::getInstance() {
    VN_ASSERT(s_instance != nullptr);
    return *s_instance;
}

void TmCurrentEditingTime::addTimeUpdatedCallback(CbHandler<DtTime const>* handler) const {
    _timeUpdated.addHandler(handler);
}

void TmCurrentEditingTime::removeTimeUpdatedCallback(CbHandler<DtTime const>* handler) const {
    _timeUpdated.removeHandler(handler);
}

void TmCurrentEditingTime::addPlayInitiatedCallback(CbHandler<CbEmptyType>* handler) const {
    _playInitiated.addHandler(handler);
}

void TmCurrentEditingTime::removePlayInitiatedCallback(CbHandler<CbEmptyType>* handler) const {
    _playInitiated.removeHandler(handler);
}

void TmCurrentEditingTime::timeUpdated() {
    _timeUpdated.call(getTime());
}

void TmCurrentEditingTime::playInitiated() {
    _playInitiated.call(CbEmptyType());
}

} // namespace Vn
