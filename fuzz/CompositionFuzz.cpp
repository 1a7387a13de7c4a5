// Arbitrary bytes to the composition reader. Bad text must raise ExBase; a composition read must
// write out and read back to the same text.
#include "ExBase.h"
#include "HoComposition.h"
#include "HoToolRegistry.h"
#include "HoTools.h"
#include "InPackageInit.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace Vn;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    InInitMgr::getInstance().initialize();
    HoTools::registerTools(HoToolRegistry::initialize());
    std::atexit([] {
        HoToolRegistry::finalize();
        InInitMgr::getInstance().finalize();
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text;
    try {
        text = HoComposition::parse(std::string_view(reinterpret_cast<char const*>(data), size),
                                    "fuzz.xml")
                   .toXml();
    } catch (ExBase const&) {
        return 0;
    }
    if (HoComposition::parse(text, "again.xml").toXml() != text)
        std::abort();
    return 0;
}
