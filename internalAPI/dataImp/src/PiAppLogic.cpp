#include "PiAppLogic.h"

#include "InSingleton.h"

namespace Vn {

namespace {
InSingleton<PiAppLogic::StandaloneInterface> s_standalone("PiAppLogic::StandaloneInterface");
InSingleton<PiAppLogic::DatabaseInterface> s_database("PiAppLogic::DatabaseInterface");
} // namespace

PiAppLogic::StandaloneInterface::~StandaloneInterface() = default;

void PiAppLogic::StandaloneInterface::initialize(OPtr<StandaloneInterface> instance) {
    s_standalone.initialize(std::move(instance));
}
void PiAppLogic::StandaloneInterface::finalize() {
    s_standalone.finalize();
}
PiAppLogic::StandaloneInterface& PiAppLogic::StandaloneInterface::getInstance() {
    return s_standalone.getInstance();
}
bool PiAppLogic::StandaloneInterface::isInitialized() {
    return s_standalone.isInitialized();
}

PiAppLogic::DatabaseInterface::~DatabaseInterface() = default;

void PiAppLogic::DatabaseInterface::initialize(OPtr<DatabaseInterface> instance) {
    s_database.initialize(std::move(instance));
}
void PiAppLogic::DatabaseInterface::finalize() {
    s_database.finalize();
}
PiAppLogic::DatabaseInterface& PiAppLogic::DatabaseInterface::getInstance() {
    return s_database.getInstance();
}
bool PiAppLogic::DatabaseInterface::isInitialized() {
    return s_database.isInitialized();
}

bool PiAppLogic::isStandalone() {
    return s_standalone.getInstance().isStandalone();
}
void PiAppLogic::addOpenDbCb(CbHandler<CbEmptyType>* handler) {
    s_database.getInstance().addOpenDbCb(handler);
}
void PiAppLogic::removeOpenDbCb(CbHandler<CbEmptyType>* handler) {
    s_database.getInstance().removeOpenDbCb(handler);
}
void PiAppLogic::addCloseDbCb(CbHandler<CbEmptyType>* handler) {
    s_database.getInstance().addCloseDbCb(handler);
}
void PiAppLogic::removeCloseDbCb(CbHandler<CbEmptyType>* handler) {
    s_database.getInstance().removeCloseDbCb(handler);
}

} // namespace Vn
