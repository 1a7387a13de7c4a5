#include "PxEWASampler.h"

#include "PxEWAWalk.h"

#include <algorithm>
#include <cmath>

namespace Vn {

namespace {

using Color = SdTextureSampler::Color;

struct Sum {
    float w = 0.0f;
    Color s;
    void add(float weight, Color const& c) noexcept {
        w += weight;
        s.r += weight * c.r;
        s.g += weight * c.g;
        s.b += weight * c.b;
        s.a += weight * c.a;
    }
    // rgb by the summed alpha, alpha by the summed weight.
    Color result() const noexcept { return IpFastMath::divide(s, s.a, w); }
};

} // namespace

PxEWASampler::PxEWASampler(PxNodePtr<PxImageProtocol const> const& node,
                           PxTimeScaleContext const& context, IxPixelFormat const& format,
                           SdTextureParams const& params, UPtr<PxEWAFilterShape const> shape)
    : PxTextureSampler(node, context, format, params, ALPHA_PREMULTIPLY), _shape(shape.get()) {
    init(params);
}

PxEWASampler::PxEWASampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                           SdTextureParams const& params, UPtr<PxEWAFilterShape const> shape)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_PREMULTIPLY), _shape(shape.get()) {
    init(params);
}

void PxEWASampler::init(SdTextureParams const& params) {
    VN_ASSERT(_shape != nullptr);
    double const r = _shape->getRadius();
    _k = EWA::footprintScale(params.blur, r);
    _minEigen = EWA::eigenBound(params.minBlur, r);
    GeRectangle<int> const& region = getImageRegion();
    double const limit = std::min(std::max(region.width(), region.height()) * 1.5 * r, 128.0);
    _maxEigen = std::max(_minEigen, static_cast<float>(limit * limit));
    double const* m = getPositionMatrix();
    _lin[0] = static_cast<float>(m[0]);
    _lin[1] = static_cast<float>(m[3]);
    _lin[2] = static_cast<float>(m[1]);
    _lin[3] = static_cast<float>(m[4]);
}

template <class Centre>
Color PxEWASampler::walk(float p, float s, float q, Centre cx, Centre cy) const {
    EWA::Ellipse const e = EWA::makeEllipse(p, s, q, _k, _minEigen, _maxEigen);
    EWA::Axes const axes = EWA::axesOf(e);
    EWA::Walk const w = axes.rowsOuter ? EWA::makeWalk(axes, cx, cy) : EWA::makeWalk(axes, cy, cx);
    float const* table = _shape->getTable();
    Sum sum;
    if (w.rowsOuter) {
        EWA::sweep(w, [&](int y, int x, std::int64_t qq, std::int64_t di) {
            // Block by block along the row.
            while (x <= w.uLimit) {
                Color const* px = lookup(x, y);
                int const n = std::min(TILE_SIZE_X - (x & (TILE_SIZE_X - 1)), w.uLimit - x + 1);
                for (int i = 0; i < n; ++i) {
                    std::uint64_t const idx = static_cast<std::uint64_t>(qq) >> 32;
                    if (idx >= PxEWAFilterShape::IDX_SIZE)
                        return;
                    sum.add(table[idx], px[i]);
                    qq += di;
                    di += w.ddi;
                }
                x += n;
            }
        });
    } else {
        EWA::sweep(w, [&](int x, int y, std::int64_t qq, std::int64_t di) {
            // Block by block down the column.
            while (y <= w.uLimit) {
                Color const* px = lookup(x, y);
                int const n = std::min(TILE_SIZE_Y - (y & (TILE_SIZE_Y - 1)), w.uLimit - y + 1);
                for (int i = 0; i < n; ++i) {
                    std::uint64_t const idx = static_cast<std::uint64_t>(qq) >> 32;
                    if (idx >= PxEWAFilterShape::IDX_SIZE)
                        return;
                    sum.add(table[idx], px[i * TILE_SIZE_X]);
                    qq += di;
                    di += w.ddi;
                }
                y += n;
            }
        });
    }
    return sum.result();
}

Color PxEWASampler::sampleCovariance(int x, int y, float p, float s, float q) const {
    return walk(p, s, q, clampX(x), clampY(y));
}

Color PxEWASampler::sample(int x, int y, float p, float s, float q) const {
    return sampleCovariance(x, y, p, s, q);
}

Color PxEWASampler::sample(int x, int y, float a, float b, float c, float d) const {
    return sampleCovariance(x, y, a * a + b * b, a * c + b * d, c * c + d * d);
}

Color PxEWASampler::sample(int x, int y, GeLinearMatrix2<float> const& j) const {
    return sample(x, y, j[0], j[1], j[2], j[3]);
}

template <class M>
Color PxEWASampler::samplePoint(GePoint<double> const& pt, M const& j) const {
    double const* m = getPositionMatrix();
    GePoint<double> const mapped{m[0] * pt.x + m[3] * pt.y + m[6],
                                 m[1] * pt.x + m[4] * pt.y + m[7]};
    float const j0 = static_cast<float>(j[0]);
    float const j1 = static_cast<float>(j[1]);
    float const j2 = static_cast<float>(j[2]);
    float const j3 = static_cast<float>(j[3]);
    float const a = _lin[0] * j0 + _lin[1] * j2;
    float const b = _lin[0] * j1 + _lin[1] * j3;
    float const c = _lin[2] * j0 + _lin[3] * j2;
    float const d = _lin[2] * j1 + _lin[3] * j3;
    GePoint<double> const centre = clampPosition(mapped);
    return walk(a * a + b * b, a * c + b * d, c * c + d * d, centre.x, centre.y);
}

Color PxEWASampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const& j) const {
    return samplePoint(p, j);
}

Color PxEWASampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const& j) const {
    return samplePoint(p, j);
}

void PxEWASampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                             GeLinearMatrix2<float> const& j, Color* out) const {
    for (int i = 0; i < n; ++i)
        out[i] = samplePoint(rowPosition(p, step, i), j);
}

Color PxEWASampler::sample(int x, int y, float du, float dv) const {
    x = clampX(x);
    y = clampY(y);
    auto bound = [this](float v) {
        v = std::min(_maxEigen, std::max(_minEigen, v));
        return std::max(v, EWA::kMinEigen);
    };
    float const ex = bound(_k * du * du);
    float const ey = bound(_k * dv * dv);
    float const rx = IpFastMath::rcp(ex);
    float const ry = IpFastMath::rcp(ey);
    float const* table = _shape->getTable();
    Sum sum;
    int const yr = static_cast<int>(std::sqrt(ey));
    for (int dy = -yr; dy <= yr; ++dy) {
        float const fy = static_cast<float>(dy * dy) * ry;
        int const xr = static_cast<int>(std::sqrt(std::max((1.0f - fy) * ex, 0.0f)));
        for (int dx = -xr; dx <= xr; ++dx) {
            int const idx =
                static_cast<int>((static_cast<float>(dx * dx) * rx + fy) * 4095.0f + 0.5f);
            if (idx < PxEWAFilterShape::IDX_SIZE)
                sum.add(table[idx], pixel(x + dx, y + dy));
        }
    }
    return sum.result();
}

} // namespace Vn
