#include "PiUserSettings.h"

#include "InSingleton.h"

namespace Vn {

namespace {
InSingleton<PiUserSettings> s_settings("PiUserSettings");
} // namespace

PiUserSettings::~PiUserSettings() = default;

PiUserSettings& PiUserSettings::getInstance() {
    return s_settings.getInstance();
}

bool PiUserSettings::isInitialized() {
    return s_settings.isInitialized();
}

void PiUserSettings::initialize(OPtr<PiUserSettings> settings) {
    s_settings.initialize(std::move(settings));
}

void PiUserSettings::finalize() {
    s_settings.finalize();
}

} // namespace Vn
