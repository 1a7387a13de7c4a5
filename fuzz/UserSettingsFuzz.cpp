// Arbitrary bytes to the user settings reader. Bad text must raise ExBase; good text must
// write out and read back to the same settings.
#include "ExBase.h"
#include "HoUserSettings.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace Vn;

namespace {
void check(bool ok) {
    if (!ok)
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    HoUserSettings::Values values;
    try {
        values = HoUserSettings::parse(std::string_view(reinterpret_cast<char const*>(data), size),
                                       "fuzz.xml");
    } catch (ExBase const&) {
        return 0;
    }
    check(values.recentProjects.size() <= HoUserSettings::kMaxRecentProjects);
    HoUserSettings::Values const again =
        HoUserSettings::parse(HoUserSettings::format(values), "again.xml");
    check(again.autoKey == values.autoKey);
    check(again.videoDevices == values.videoDevices);
    check(again.recentProjects.size() == values.recentProjects.size());
    auto a = again.recentProjects.begin();
    for (auto const& e : values.recentProjects) {
        check(a->getProjectPath() == e.getProjectPath());
        check(a->getDate() == e.getDate());
        ++a;
    }
    return 0;
}
