// Drives the EWA sampler and splatter with arbitrary parameters: blur, bounds, wrap modes,
// texture matrices, positions and footprints, NaN and infinities included. Every result must
// be finite, and no input may crash, hang or read out of bounds.

#include "InPackageInit.h"
#include "IxScanlineTypes.h"
#include "PxEWASampler.h"
#include "PxEWASplatter.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>

using namespace Vn;

namespace {

// Takes fields from the input, and zeros once it runs out.
class Reader {
public:
    Reader(uint8_t const* data, size_t size) : _data(data), _size(size) {}
    template <class T>
    T take() {
        T v{};
        size_t const n = std::min(sizeof(T), _size - _pos);
        if (n != 0)
            std::memcpy(&v, _data + _pos, n);
        _pos += n;
        return v;
    }
    bool done() const { return _pos >= _size; }

private:
    uint8_t const* _data;
    size_t _size;
    size_t _pos = 0;
};

struct World {
    World() {
        InInitMgr::getInstance().initialize();
        // A small image in two tiles, some pixels transparent.
        IxPixelFormat const f(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
        for (int part = 0; part < 2; ++part) {
            GeRectangle<int> const r{part * 32, part * 32 + 32, -8, 40};
            IxTile tile(f, r, {});
            IxWriteGuard const g(tile);
            for (int y = r.ymin; y < r.ymax; ++y)
                for (int x = r.xmin; x < r.xmax; ++x)
                    *g.getPixel<CoRgbaColorTyped<float>>(x, y) = {
                        float(x & 7) / 7, float(y & 3) / 3, 0.5f, (x + y) % 5 == 0 ? 0.0f : 0.75f};
            tiles.push_back(tile);
        }
    }
    Vector<IxTile> tiles;
};

World& world() {
    static World w;
    return w;
}

bool finite(CoRgbaColorTyped<float> const& c) {
    return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) && std::isfinite(c.a);
}

void check(CoRgbaColorTyped<float> const& c) {
    if (!finite(c))
        __builtin_trap();
}

UPtr<PxEWAFilterShape const> shapeOf(uint8_t v) {
    switch (v % 3) {
    case 0:
        return PxEWAFilterShape::getGauss();
    case 1:
        return PxEWAFilterShape::getJinc2();
    default:
        return PxEWAFilterShape::getJinc3();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    World& w = world();
    Reader in(data, size);
    SdTextureParams params;
    params.filter = 4;
    params.blur = in.take<float>();
    params.minBlur = in.take<float>();
    // NOOP wrapping must not read outside the image, which arbitrary positions do.
    params.wrapS = in.take<uint8_t>() % 4;
    params.wrapT = in.take<uint8_t>() % 4;
    for (float& m : params.matrix)
        m = in.take<float>();
    uint8_t const shape = in.take<uint8_t>();
    {
        PxEWASampler const s(
            makeOPtr<PxImageFetcherAdapter>(makeOPtr<IxScanlineTypes::TileListFetcher>(w.tiles)),
            IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32), params, shapeOf(shape));
        for (int i = 0; i < 4 && !in.done(); ++i) {
            int const x = in.take<int32_t>();
            int const y = in.take<int32_t>();
            float j[4];
            for (float& v : j)
                v = in.take<float>();
            check(s.sample(x, y, j[0], j[1], j[2], j[3]));
            check(s.sample(x, y, j[0], j[1]));
            check(s.sample(x, y, j[0], j[1], j[2]));
            GePoint<double> const p{in.take<double>(), in.take<double>()};
            check(s.sample(p, GeLinearMatrix2<float>(j[0], j[1], j[2], j[3])));
            check(s.sample(p, GeLinearMatrix2<double>(j[3], j[2], j[1], j[0])));
        }
    }
    IxTile const target(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8), {-5, 27, 3, 35},
                        {});
    {
        float const blur = in.take<float>();
        float const lo = in.take<float>();
        float const hi = in.take<float>();
        PxEWASplatter const splat(IxWriteGuard(target), shapeOf(in.take<uint8_t>()), blur, lo, hi);
        for (int i = 0; i < 8 && !in.done(); ++i) {
            CoRgbaColorTyped<float> c{in.take<float>(), in.take<float>(), in.take<float>(),
                                      in.take<float>()};
            GePoint<float> const centre{in.take<float>(), in.take<float>()};
            splat.splatter(c, centre, in.take<float>(), in.take<float>(), in.take<float>());
        }
    }
    return 0;
}
