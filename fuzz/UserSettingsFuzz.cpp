// Arbitrary bytes to the user settings reader. Bad text must raise ExBase; good text must
// write out and read back to the same settings.
#include "ExBase.h"
#include "FuzzCheck.h"
#include "HoUserSettings.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace Vn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    HoUserSettings::Values values;
    try {
        values = HoUserSettings::parse(std::string_view(reinterpret_cast<char const*>(data), size),
                                       "fuzz.xml");
    } catch (ExBase const&) {
        return 0;
    }
    fuzzCheck(values.recentProjects.size() <= HoUserSettings::kMaxRecentProjects);
    HoUserSettings::Values const again =
        HoUserSettings::parse(HoUserSettings::format(values), "again.xml");
    fuzzCheck(again.autoKey == values.autoKey);
    fuzzCheck(again.videoDevices == values.videoDevices);
    fuzzCheck(again.recentProjects.size() == values.recentProjects.size());
    auto a = again.recentProjects.begin();
    for (auto const& e : values.recentProjects) {
        fuzzCheck(a->getProjectPath() == e.getProjectPath());
        fuzzCheck(a->getDate() == e.getDate());
        ++a;
    }
    return 0;
}
