#include "PxSamplers.h"

#include "IpFastMath.h"

namespace Vn {

namespace {

using Color = SdTextureSampler::Color;

// Componentwise, single precision, in the order written: the arithmetic is part of the result.
inline Color lerp(Color const& a, Color const& b, float t) noexcept {
    return {a.r + t * (b.r - a.r), a.g + t * (b.g - a.g), a.b + t * (b.b - a.b),
            a.a + t * (b.a - a.a)};
}

// (p0 w0 + p1 w1) + (p2 w2 + p3 w3).
inline Color weigh4(Color const& p0, Color const& p1, Color const& p2, Color const& p3,
                    float const w[4]) noexcept {
    return {(p0.r * w[0] + p1.r * w[1]) + (p2.r * w[2] + p3.r * w[3]),
            (p0.g * w[0] + p1.g * w[1]) + (p2.g * w[2] + p3.g * w[3]),
            (p0.b * w[0] + p1.b * w[1]) + (p2.b * w[2] + p3.b * w[3]),
            (p0.a * w[0] + p1.a * w[1]) + (p2.a * w[2] + p3.a * w[3])};
}

using Cell = PxTextureSampler::Cell;

inline Cell cellOf(GePoint<double> const& q) noexcept {
    int const ix = PxTextureSampler::floorIndex(q.x);
    int const iy = PxTextureSampler::floorIndex(q.y);
    return {ix, iy, static_cast<float>(q.x - ix), static_cast<float>(q.y - iy)};
}

} // namespace

// A row's cells a chunk at a time, each handed to f.
template <class F>
void PxTextureSampler::eachCell(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                Color* out, F const& f) const {
    alignas(16) int ix[ROW_CHUNK];
    alignas(16) int iy[ROW_CHUNK];
    alignas(16) float fx[ROW_CHUNK];
    alignas(16) float fy[ROW_CHUNK];
    for (int first = 0; first < n; first += ROW_CHUNK) {
        int const m = std::min(ROW_CHUNK, n - first);
        mapRow(p, step, first, m, ix, iy, fx, fy);
        for (int i = 0; i < m; ++i)
            out[first + i] = f(Cell{ix[i], iy[i], fx[i], fy[i]});
    }
}

// ---- nearest ----

PxNearestSampler::PxNearestSampler(PxNodePtr<PxImageProtocol const> const& node,
                                   PxTimeScaleContext const& context, IxPixelFormat const& format,
                                   SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_AS_IS) {}

PxNearestSampler::PxNearestSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                   SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_AS_IS) {}

inline Color PxNearestSampler::at(GePoint<double> const& p) const {
    GePoint<double> const q = mapPosition(p);
    return pixel(floorIndex(q.x), floorIndex(q.y));
}

Color PxNearestSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxNearestSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxNearestSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                 GeLinearMatrix2<float> const&, Color* out) const {
    alignas(16) int ix[ROW_CHUNK];
    alignas(16) int iy[ROW_CHUNK];
    for (int first = 0; first < n; first += ROW_CHUNK) {
        int const m = std::min(ROW_CHUNK, n - first);
        mapRow(p, step, first, m, ix, iy, nullptr, nullptr);
        for (int i = 0; i < m; ++i)
            out[first + i] = pixel(ix[i], iy[i]);
    }
}

// ---- bilinear ----

namespace {

// The four pixels of a cell, from one block lookup when the cell lies inside a block, as it
// does 31 times out of 32 along each axis.
template <class Lookup>
Color bilinear(Cell const& c, Lookup const& lookup) {
    constexpr int kMask = PxTextureSampler::TILE_SIZE_X - 1;
    constexpr int kRow = PxTextureSampler::TILE_SIZE_X;
    Color const* p = lookup(c.ix, c.iy);
    bool const inX = (c.ix & kMask) != kMask;
    bool const inY = (c.iy & kMask) != kMask;
    Color const c00 = p[0];
    Color const c01 = inY ? p[kRow] : *lookup(c.ix, c.iy + 1);
    Color const c10 = inX ? p[1] : *lookup(c.ix + 1, c.iy);
    Color const c11 = inX && inY ? p[kRow + 1] : *lookup(c.ix + 1, c.iy + 1);
    Color const top = lerp(c00, c10, c.fx);
    Color const bottom = lerp(c01, c11, c.fx);
    return lerp(top, bottom, c.fy);
}

} // namespace

PxBilinearSampler::PxBilinearSampler(PxNodePtr<PxImageProtocol const> const& node,
                                     PxTimeScaleContext const& context, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_PREMULTIPLY) {}

PxBilinearSampler::PxBilinearSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_PREMULTIPLY) {}

inline Color PxBilinearSampler::at(GePoint<double> const& p) const {
    auto read = [this](int x, int y) {
        return lookup(x, y);
    };
    return IpFastMath::unpremultiply(bilinear(cellOf(mapPosition(p)), read));
}

Color PxBilinearSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxBilinearSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxBilinearSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                  GeLinearMatrix2<float> const&, Color* out) const {
    eachCell(p, step, n, out, [this](Cell const& c) {
        return IpFastMath::unpremultiply(
            bilinear(c, [this](int x, int y) { return lookup(x, y); }));
    });
}

PxBilinearRGBSampler::PxBilinearRGBSampler(PxNodePtr<PxImageProtocol const> const& node,
                                           PxTimeScaleContext const& context,
                                           IxPixelFormat const& format,
                                           SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_AS_IS) {}

PxBilinearRGBSampler::PxBilinearRGBSampler(OPtr<PxImageFetcherBase> fetcher,
                                           IxPixelFormat const& format,
                                           SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_AS_IS) {}

inline Color PxBilinearRGBSampler::at(GePoint<double> const& p) const {
    auto read = [this](int x, int y) {
        return lookup(x, y);
    };
    return bilinear(cellOf(mapPosition(p)), read);
}

Color PxBilinearRGBSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxBilinearRGBSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxBilinearRGBSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                     GeLinearMatrix2<float> const&, Color* out) const {
    eachCell(p, step, n, out, [this](Cell const& c) {
        return bilinear(c, [this](int x, int y) { return lookup(x, y); });
    });
}

// ---- Mitchell ----

PxMitchellSampler::PxMitchellSampler(PxNodePtr<PxImageProtocol const> const& node,
                                     PxTimeScaleContext const& context, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_PREMULTIPLY) {}

PxMitchellSampler::PxMitchellSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_PREMULTIPLY) {}

void PxMitchellSampler::weights(float t, float w[4]) noexcept {
    // Per tap: c3, c2, c1, c0 of ((c3 u + c2) u + c1) u + c0 at u = t + 1, t, t - 1, t - 2.
    static constexpr float c[4][4] = {
        {float(-7.0 / 18.0), 2.0f, float(-10.0 / 3.0), float(16.0 / 9.0)},
        {float(7.0 / 6.0), -2.0f, 0.0f, float(8.0 / 9.0)},
        {float(-7.0 / 6.0), -2.0f, 0.0f, float(8.0 / 9.0)},
        {float(7.0 / 18.0), 2.0f, float(10.0 / 3.0), float(16.0 / 9.0)},
    };
    float const u[4] = {t + 1.0f, t, t - 1.0f, t - 2.0f};
    for (int i = 0; i < 4; ++i)
        w[i] = ((c[i][0] * u[i] + c[i][1]) * u[i] + c[i][2]) * u[i] + c[i][3];
}

inline Color PxMitchellSampler::at(GePoint<double> const& p) const {
    return atCell(cellOf(mapPosition(p)));
}

inline Color PxMitchellSampler::atCell(Cell const& c) const {
    float wx[4];
    float wy[4];
    weights(c.fx, wx);
    weights(c.fy, wy);
    Color rows[4];
    constexpr int kMask = TILE_SIZE_X - 1;
    if (((c.ix - 1) & kMask) <= kMask - 3 && ((c.iy - 1) & kMask) <= kMask - 3) {
        // The 4 x 4 window inside one block.
        Color const* px = lookup(c.ix - 1, c.iy - 1);
        for (int j = 0; j < 4; ++j, px += TILE_SIZE_X)
            rows[j] = weigh4(px[0], px[1], px[2], px[3], wx);
    } else {
        for (int j = 0; j < 4; ++j) {
            int const y = c.iy - 1 + j;
            rows[j] = weigh4(pixel(c.ix - 1, y), pixel(c.ix, y), pixel(c.ix + 1, y),
                             pixel(c.ix + 2, y), wx);
        }
    }
    return IpFastMath::unpremultiply(weigh4(rows[0], rows[1], rows[2], rows[3], wy));
}

Color PxMitchellSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxMitchellSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxMitchellSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                  GeLinearMatrix2<float> const&, Color* out) const {
    eachCell(p, step, n, out, [this](Cell const& c) { return atCell(c); });
}

} // namespace Vn
