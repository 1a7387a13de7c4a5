#include "PiProjectSettings.h"

#include "Assertions.h"
#include "InSingleton.h"
#include "LiStringSubstituter.h"

#include <vector>

namespace Vn {

namespace {
InSingleton<PiProjectSettings> s_settings("PiProjectSettings");
std::vector<std::string> s_modeTexts;

char const* const kRenderFolder = "<RenderFolder>";
char const* const kPublishDir = "<PublishDir>";

std::string renderFolder() {
    return PiProjectSettings::getInstance().getRenderFolder();
}
} // namespace

PiProjectSettings::~PiProjectSettings() = default;

PiProjectSettings& PiProjectSettings::getInstance() {
    return s_settings.getInstance();
}

bool PiProjectSettings::isInitialized() {
    return s_settings.isInitialized();
}

std::string const& PiProjectSettings::precompUpdateModeToString(PrecompUpdateMode mode) {
    VN_ASSERT(mode < s_modeTexts.size());
    return s_modeTexts[mode];
}

void PiProjectSettings::initialize(OPtr<PiProjectSettings> settings) {
    s_settings.initialize(std::move(settings));
    s_modeTexts = {"Update", "Recreate (Keep Versions)", "Overwrite (Delete Versions)",
                   "Skip Existing Compositions", "Prompt User"};
    LiStringSubstituter::registerPattern(kRenderFolder, renderFolder);
    LiStringSubstituter::registerPattern(kPublishDir, renderFolder);
}

void PiProjectSettings::finalize() {
    s_settings.finalize();
    LiStringSubstituter::unregisterPattern(kRenderFolder);
    LiStringSubstituter::unregisterPattern(kPublishDir);
}

} // namespace Vn
