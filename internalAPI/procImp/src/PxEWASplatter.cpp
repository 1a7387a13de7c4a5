#include "PxEWASplatter.h"

#include "Assertions.h"
#include "IxImageOps.h"
#include "IxScanline.h"
#include "PxEWAWalk.h"
#include "PxRequestMgr.h"

#include <algorithm>
#include <exception>

namespace Vn {

namespace {

IxPixelFormat floatFormat(int comps, IxWriteGuard const& like) {
    return IxPixelFormat(comps, IxPixelFormat::FLOAT32, like.getPixelFormat().getAspectRatio());
}

} // namespace

PxEWASplatter::PxEWASplatter(IxWriteGuard const& target, UPtr<PxEWAFilterShape const> shape,
                             float blur, float minimum, float maximum)
    : _target(target), _region(target.getPixelRegion()),
      _mgr(PxRequestMgr::isInitialized() ? &PxRequestMgr::getInstance() : nullptr),
      _shape(shape.get()), _exceptions(std::uncaught_exceptions()) {
    VN_ASSERT(_shape != nullptr);
    double const r = _shape->getRadius();
    _k = EWA::footprintScale(blur, r);
    _minEigen = EWA::eigenBound(minimum, r);
    _maxEigen = std::max(_minEigen, EWA::eigenBound(maximum, r));
    IxPixelFormat const& f = target.getPixelFormat();
    if (f.getComps() == IxPixelFormat::RGBA && f.getDepth() == IxPixelFormat::FLOAT32)
        _colors = target;
    else
        _colors = IxWriteGuard(IxTile(floatFormat(IxPixelFormat::RGBA, target), _region, {}));
    _weights = IxWriteGuard(IxTile(floatFormat(IxPixelFormat::ALPHA, target), _region, {}));
    ipSet(_colors, _region, {});
    ipSet(_weights, _region, {});
}

PxEWASplatter::~PxEWASplatter() noexcept(false) {
    if (std::uncaught_exceptions() > _exceptions)
        return;
    normalize();
}

void PxEWASplatter::checkCancelled() const {
    if (_mgr)
        _mgr->checkCancelled();
}

void PxEWASplatter::splatter(Color const& color, GePoint<float> const& centre, float p, float s,
                             float q) const {
    checkCancelled();
    EWA::Ellipse const e = EWA::makeEllipse(p, s, q, _k, _minEigen, _maxEigen);
    double const px = centre.x;
    double const py = centre.y;
    if (!std::isfinite(px) || !std::isfinite(py))
        return;
    int const x0 = std::max(EWA::lowerBound(px - e.xe), _region.xmin);
    int const x1 = std::min(EWA::upperBound(px + e.xe), _region.xmax - 1);
    int const y0 = std::max(EWA::lowerBound(py - e.ye), _region.ymin);
    int const y1 = std::min(EWA::upperBound(py + e.ye), _region.ymax - 1);
    if (x0 > x1 || y0 > y1)
        return;

    EWA::Axes const axes = EWA::axesOf(e);
    double const pu = axes.rowsOuter ? px : py;
    double const pv = axes.rowsOuter ? py : px;
    float const* table = _shape->getTable();
    constexpr std::int64_t kSize = PxEWAFilterShape::IDX_SIZE;

    // The whole ellipse's weight, wherever it falls.
    EWA::Walk const whole = EWA::makeWalk(axes, pu, pv);
    float sum = 0.0f;
    EWA::sweep(whole, [&](int, int u, std::int64_t qq, std::int64_t di) {
        for (; u <= whole.uLimit; ++u) {
            std::int64_t const idx = qq >> 32;
            if (idx >= kSize)
                return;
            VN_ASSERT(idx >= 0);
            sum += table[idx];
            qq += di;
            di += whole.ddi;
        }
    });
    float const scale = IpFastMath::rcp(sum);
    if (!std::isfinite(scale))
        return; // no energy to spread
    Color const pre{color.r * color.a, color.g * color.a, color.b * color.a, color.a};

    // The part inside the target, from the extreme point clamped into it.
    int const u0 = axes.rowsOuter ? x0 : y0;
    int const u1 = axes.rowsOuter ? x1 : y1;
    int const v0 = axes.rowsOuter ? y0 : x0;
    int const v1 = axes.rowsOuter ? y1 : x1;
    EWA::Walk clipped = whole;
    clipped.uStart = std::max(whole.uStart, u0);
    clipped.uLimit = std::min(whole.uLimit, u1);
    clipped.vStart = std::clamp(whole.vStart, v0, v1);
    clipped.vLow = std::max(whole.vLow, v0);
    clipped.vHigh = std::min(whole.vHigh, v1);
    EWA::initState(clipped, axes, clipped.uStart - pu, clipped.vStart - pv);
    bool const rows = axes.rowsOuter;
    EWA::sweep(clipped, [&](int v, int u, std::int64_t qq, std::int64_t di) {
        for (; u <= clipped.uLimit; ++u) {
            std::int64_t const idx = qq >> 32;
            if (idx >= kSize)
                return;
            VN_ASSERT(idx >= 0);
            float const w = table[idx] * scale;
            int const x = rows ? u : v;
            int const y = rows ? v : u;
            *_weights.getPixel<float>(x, y) += w;
            Color& c = *_colors.getPixel<Color>(x, y);
            c.r += w * pre.r;
            c.g += w * pre.g;
            c.b += w * pre.b;
            c.a += w * pre.a;
            qq += di;
            di += clipped.ddi;
        }
    });
}

void PxEWASplatter::splatter(Color const& color, GePoint<float> const& centre,
                             GeLinearMatrix2<float> const& j) const {
    splatter(color, centre, j[0] * j[0] + j[1] * j[1], j[0] * j[2] + j[1] * j[3],
             j[2] * j[2] + j[3] * j[3]);
}

void PxEWASplatter::splatter(Color const& color, GePoint<float> const& centre,
                             GeLinearMatrix2<double> const& j) const {
    splatter(color, centre, static_cast<float>(j[0] * j[0] + j[1] * j[1]),
             static_cast<float>(j[0] * j[2] + j[1] * j[3]),
             static_cast<float>(j[2] * j[2] + j[3] * j[3]));
}

void PxEWASplatter::normalize() const {
    if (_region.isEmpty())
        return;
    bool const inPlace = _colors.getFirst() == _target.getFirst();
    IxPaddingPolicy<Color> const colorPad(IxPaddingPolicy<Color>::NOOP, Color{0, 0, 0, 1});
    IxPaddingPolicy<float> const weightPad(IxPaddingPolicy<float>::NOOP, 0.0f);
    IxScanline<Color> out(_region.xmin, inPlace ? _region.xmin : _region.xmax, colorPad);
    for (int y = _region.ymin; y < _region.ymax; ++y) {
        checkCancelled();
        IxScanline<Color> sums(_colors, y, _region.xmin, _region.xmax, colorPad);
        IxScanline<float> weights(_weights, y, _region.xmin, _region.xmax, weightPad);
        Color* dst = inPlace ? sums.getData() : out.getData();
        for (int i = 0, n = _region.width(); i < n; ++i)
            dst[i] =
                IpFastMath::divide(sums.getData()[i], sums.getData()[i].a, weights.getData()[i]);
        if (!inPlace)
            out.writeTo(_target, y);
    }
}

} // namespace Vn
