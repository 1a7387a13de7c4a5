// Arbitrary bytes to the configuration reader. Bad text must raise ExBase; what it accepts must
// be settings the project can use.
#include "ExBase.h"
#include "FuzzCheck.h"
#include "HoProjectSettings.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace Vn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    HoProjectSettings::Values v;
    try {
        v = HoProjectSettings::parse(std::string_view(reinterpret_cast<char const*>(data), size),
                                     "fuzz.xml");
    } catch (ExBase const&) {
        return 0;
    }
    fuzzCheck(v.width >= 1 && v.height >= 1 && v.width <= (1 << 20) && v.height <= (1 << 20));
    fuzzCheck(v.components == IxPixelFormat::ALPHA || v.components == IxPixelFormat::RGB ||
              v.components == IxPixelFormat::RGBA);
    fuzzCheck(v.rate > Rational(0) && v.pixelRatio > Rational(0));
    fuzzCheck(v.start <= v.end);
    // The settings make a valid pixel format.
    fuzzCheck(IxPixelFormat(v.components, v.depth, v.pixelRatio).isValid());
    return 0;
}
