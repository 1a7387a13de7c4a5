#pragma once

// Images in memory for the samplers, and a plain sampler without cache, tiles or blocks to
// compare them with.

#include "IpFastMath.h"
#include "IxConvertUtil.h"
#include "IxScanlineTypes.h"
#include "PxImageFetcher.h"
#include "SdTexture.h"

#include <cmath>
#include <cstring>
#include <random>

namespace VnTest {

using namespace Vn;
using Color = CoRgbaColorTyped<float>;

inline bool sameBits(Color const& a, Color const& b) {
    return std::memcmp(&a, &b, sizeof(Color)) == 0;
}

// An image cut into tiles of 2^tileExp pixels on the absolute grid, with random pixels.
struct TestImage {
    IxPixelFormat format;
    GeRectangle<int> region;
    Vector<IxTile> tiles;

    // Pixel (x, y) of the region as float RGBA.
    Color at(int x, int y) const {
        for (IxTile const& t : tiles)
            if (t.getPixelRegion().contains(x, y)) {
                IxReadGuard const g(t);
                Color c;
                IxConvertUtil::readFrom(&c, g.getAddress(x, y), 1,
                                        ImPixelFormat(format.getComps(), format.getDepth()));
                return c;
            }
        ADD_FAILURE() << "no tile holds " << x << "," << y;
        return {};
    }
    OPtr<PxImageFetcherBase> fetcher() const {
        return makeOPtr<PxImageFetcherAdapter>(makeOPtr<IxScanlineTypes::TileListFetcher>(tiles));
    }
};

// fill(x, y) gives each pixel's float RGBA value before conversion to the format.
template <class Fill>
TestImage makeImage(IxPixelFormat const& format, GeRectangle<int> const& region, int tileExp,
                    Fill const& fill) {
    TestImage img{format, region, {}};
    int const size = 1 << tileExp;
    int const tx0 = region.xmin >> tileExp;
    int const ty0 = region.ymin >> tileExp;
    for (int ty = ty0; ty * size < region.ymax; ++ty)
        for (int tx = tx0; tx * size < region.xmax; ++tx) {
            GeRectangle<int> const r =
                region.intersect({tx * size, (tx + 1) * size, ty * size, (ty + 1) * size});
            IxTile tile(format, r, {});
            IxWriteGuard const g(tile);
            for (int y = r.ymin; y < r.ymax; ++y)
                for (int x = r.xmin; x < r.xmax; ++x) {
                    Color const c = fill(x, y);
                    IxConvertUtil::writeTo(g.getAddress(x, y), &c, 1,
                                           ImPixelFormat(format.getComps(), format.getDepth()));
                }
            img.tiles.push_back(tile);
        }
    return img;
}

inline TestImage randomImage(IxPixelFormat const& format, GeRectangle<int> const& region,
                             int tileExp, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    return makeImage(format, region, tileExp, [&](int, int) {
        // Some pixels fully transparent.
        float const a = u(rng) < 0.1f ? 0.0f : u(rng);
        return Color{u(rng), u(rng), u(rng), a};
    });
}

// The texture sampler's wrap rules, per coordinate, by plain arithmetic.
inline bool wrapCoordinate(int mode, int v, int lo, int hi, int& out) {
    int const n = hi - lo;
    int const d = v - lo;
    switch (mode) {
    case SdTextureTypes::WRAP_BLACK:
        out = v;
        return v >= lo && v < hi;
    case SdTextureTypes::WRAP_EDGE:
        out = std::min(std::max(v, lo), hi - 1);
        return true;
    case SdTextureTypes::WRAP_REPEAT:
        out = lo + ((d % n) + n) % n;
        return true;
    default: {
        int const period = d >= 0 ? d / n : -((-d + n - 1) / n);
        int const r = d - period * n;
        out = lo + ((period & 1) ? n - 1 - r : r);
        return true;
    }
    }
}

// A sampler without cache: every read wraps and converts afresh.
struct ReferenceSampler {
    TestImage const& img;
    SdTextureParams params;
    bool premultiply;

    double m[9];
    double box[4];

    ReferenceSampler(TestImage const& image, SdTextureParams const& p, bool premult)
        : img(image), params(p), premultiply(premult) {
        double const w = img.region.width();
        double const h = img.region.height();
        float const* b = p.matrix;
        double const shift = p.filter == SdTextureTypes::FILTER_NEAREST ? 0.0 : 0.5;
        double const mm[9] = {w * b[0],
                              h * b[1],
                              0,
                              w * b[3],
                              h * b[4],
                              0,
                              w * b[6] + img.region.xmin - shift,
                              h * b[7] + img.region.ymin - shift,
                              1};
        std::copy(mm, mm + 9, m);
        bool const bx = p.wrapS == 0;
        bool const by = p.wrapT == 0;
        box[0] = bx ? img.region.xmin - 32 : -65536.0;
        box[1] = bx ? img.region.xmax + 32 : 65536.0;
        box[2] = by ? img.region.ymin - 32 : -65536.0;
        box[3] = by ? img.region.ymax + 32 : 65536.0;
    }

    Color texel(int x, int y) const {
        int sx = 0;
        int sy = 0;
        if (!wrapCoordinate(params.wrapS, x, img.region.xmin, img.region.xmax, sx) ||
            !wrapCoordinate(params.wrapT, y, img.region.ymin, img.region.ymax, sy))
            return {};
        Color c = img.at(sx, sy);
        if (img.format.getComps() == IxPixelFormat::ALPHA)
            return {c.a, c.a, c.a, c.a};
        if (premultiply && img.format.getComps() == IxPixelFormat::RGBA)
            c = {c.r * c.a, c.g * c.a, c.b * c.a, c.a};
        return c;
    }
    void map(GePoint<double> const& p, double& x, double& y) const {
        x = m[0] * p.x + m[3] * p.y + m[6];
        y = m[1] * p.x + m[4] * p.y + m[7];
        x = std::min(box[1], std::max(box[0], x));
        y = std::min(box[3], std::max(box[2], y));
    }
    static int floorOf(double v) { return v < 0 ? int(v) - 1 : int(v); }
};

} // namespace VnTest
