#include "IpTestPerf.h"

#include "Assertions.h"
#include "IxGuardBase.h"

#include <cmath>
#include <cstdlib>

namespace Vn {

namespace {

int sizeOption(TestPerfBase::Options const& o, char const* key) {
    auto const it = o.find(key);
    if (it == o.end())
        return 1024;
    char* end = nullptr;
    long const v = std::strtol(it->second.c_str(), &end, 10);
    if (end == it->second.c_str() || *end != '\0' || v < 1 || v > 16384)
        throw TestPerfBase::ExUsageError(__FILE__, __LINE__, "Tile size must be from 1 to 16384.");
    return static_cast<int>(v);
}

// A matte with a soft disc, a hard square with a hole, thin lines and a gradient.
float matte(int x, int y, int w, int h) {
    float const u = (static_cast<float>(x) + 0.5f) / static_cast<float>(w);
    float const v = (static_cast<float>(y) + 0.5f) / static_cast<float>(h);
    float const d = std::hypot(u - 0.3f, v - 0.35f);
    float a = std::fmin(1.0f, std::fmax(0.0f, (0.22f - d) * 20.0f));
    bool const square = u > 0.55f && u < 0.9f && v > 0.5f && v < 0.9f;
    bool const hole = u > 0.7f && u < 0.75f && v > 0.65f && v < 0.7f;
    if (square && !hole)
        a = 1.0f;
    if ((x % 37 == 0) || (y % 53 == 0))
        a = std::fmax(a, 0.8f);
    if (v > 0.92f)
        a = std::fmax(a, u);
    return a;
}

} // namespace

IpTestPerf::IpTestPerf(std::string name, int nbTiles)
    : TestPerfBase(std::move(name)), _nbTiles(nbTiles) {
    VN_ASSERT(nbTiles >= 1);
}

IpTestPerf::~IpTestPerf() = default;

IxTile const& IpTestPerf::getTile(int i) const {
    VN_ASSERT(0 <= i && i < static_cast<int>(_tiles.size()));
    return _tiles[static_cast<std::size_t>(i)];
}

void IpTestPerf::cleanUp() {
    _tiles.clear();
    TestPerfBase::cleanUp();
}

std::string IpTestPerf::getTileUsage() {
    return "width : 1-16384 : tile width (1024)\nheight : 1-16384 : tile height (1024)\n"
           "comps : ALPHA,RGBA : tile components (ALPHA)\n";
}

void IpTestPerf::initialize(Options const& options) {
    TestPerfBase::initialize(options);
    int const w = sizeOption(options, "width");
    int const h = sizeOption(options, "height");
    IxPixelFormat::Comps comps = IxPixelFormat::ALPHA;
    if (auto const it = options.find("comps"); it != options.end()) {
        if (it->second == "RGBA")
            comps = IxPixelFormat::RGBA;
        else if (it->second != "ALPHA")
            throw ExUsageError(__FILE__, __LINE__, "Unknown tile components specified.");
    }
    IxPixelFormat const format(comps, IxPixelFormat::FLOAT32);
    GeRectangle<int> const region(0, w, 0, h);
    _tiles.clear();
    for (int i = 0; i < _nbTiles; ++i) {
        IxTile tile(format, region, {});
        IxWriteGuard g(tile);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                // Each source a little different, so that compositing has work to do.
                float const a = matte((x + 29 * i) % w, y, w, h);
                if (comps == IxPixelFormat::ALPHA)
                    *g.getPixel<float>(x, y) = a;
                else
                    *g.getPixel<CoRgbaColorTyped<float>>(x, y) = {
                        static_cast<float>(x) / static_cast<float>(w),
                        static_cast<float>(y) / static_cast<float>(h),
                        0.25f * static_cast<float>(i), a};
            }
        _tiles.push_back(tile);
    }
}

} // namespace Vn
