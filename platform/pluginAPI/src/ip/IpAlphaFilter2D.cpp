#include "IpAlphaFilter2D.h"

#include "Assertions.h"
#include "IpAlphaKernels.h"
#include "IpScanlinePipe.h"
#include "IxGuardBase.h"
#include "IxScanline.h"
#include "IxScanlineUtil.h"

namespace Vn {

IpAlphaFilter2D::IpAlphaFilter2D(OPtr<IpAlphaFilter1D> across, OPtr<IpAlphaFilter1D> down)
    : _across(std::move(across)), _down(std::move(down)) {
    VN_ASSERT(!_across.isNull() && !_down.isNull());
}

IpAlphaFilter2D::~IpAlphaFilter2D() = default;

void IpAlphaFilter2D::filter(Vector<IxReadGuard> const& sources, IxWriteGuard const& dst,
                             GeRectangle<int> const& region) const {
    GeRectangle<int> const r =
        (region.isEmpty() ? dst.getPixelRegion() : region).intersect(dst.getPixelRegion());
    if (r.isEmpty())
        return;
    int const mx = _across->getMargin();
    int const my = _down->getMargin();
    int const w = r.width();
    int const rows = r.height() + 2 * my;
    float const fill = sources.empty() ? 0.0f : sources.front().getTile().getFillColor().a;

    // Across: every source row the result needs, into a plane of the result's width.
    Vector<float> plane(static_cast<std::size_t>(w) * rows);
    IxScanline<float> in(r.xmin - mx, r.xmax + mx,
                         IxPaddingPolicy<float>(IxPaddingPolicy<float>::CONSTANT, fill));
    for (int i = 0; i < rows; ++i) {
        in.readFrom(sources, r.ymin - my + i);
        _across->filter(plane.data() + static_cast<std::size_t>(i) * w, in.getData(), w);
        IpScanlinePipe::checkCancelled();
    }
    // Down: the taps run over whole rows at once.
    IxScanline<float> out(r.xmin, r.xmax, IxPaddingPolicy<float>());
    // The vertical filter's taps, reversed: its response to a unit impulse.
    Vector<float> taps(static_cast<std::size_t>(2 * my + 1));
    Vector<float> impulse(static_cast<std::size_t>(4 * my + 1), 0.0f);
    impulse[static_cast<std::size_t>(2 * my)] = 1.0f;
    _down->filter(taps.data(), impulse.data(), 2 * my + 1);
    for (int y = r.ymin; y < r.ymax; ++y) {
        float const* base = plane.data() + static_cast<std::size_t>(y - r.ymin) * w;
        // Tap k weighs row y - my + k.
        IpAlphaRows::scale(out.getData(), base, taps[static_cast<std::size_t>(2 * my)], w);
        for (int k = 1; k <= 2 * my; ++k)
            IpAlphaRows::accumulate(out.getData(), base + static_cast<std::size_t>(k) * w,
                                    taps[static_cast<std::size_t>(2 * my - k)], w);
        out.writeTo(dst, y);
        IpScanlinePipe::checkCancelled();
    }
}

IpFeatherFilter2D::IpFeatherFilter2D(float x, float y)
    : IpAlphaFilter2D(OPtr<IpAlphaFilter1D>(new IpFeatherFilter1D(x)),
                      OPtr<IpAlphaFilter1D>(new IpFeatherFilter1D(y))) {}

IpFeatherFilter2D::~IpFeatherFilter2D() = default;

void ipCombineRGBWithA(IxWriteGuard& dst, IxReadGuard const& rgb, IxReadGuard const& alpha,
                       GeRectangle<int> const& region) {
    using Color = CoRgbaColorTyped<float>;
    GeRectangle<int> const r = region.intersect(dst.getPixelRegion());
    Color fill = rgb.getTile().getFillColor();
    fill.a = alpha.getTile().getFillColor().a;
    if (!r.isEmpty()) {
        IxScanline<Color> c(
            r.xmin, r.xmax,
            IxPaddingPolicy<Color>(IxPaddingPolicy<Color>::CONSTANT, rgb.getTile().getFillColor()));
        IxScanline<float> a(r.xmin, r.xmax,
                            IxPaddingPolicy<float>(IxPaddingPolicy<float>::CONSTANT, fill.a));
        for (int y = r.ymin; y < r.ymax; ++y) {
            c.readFrom(rgb, y);
            a.readFrom(alpha, y);
            IxScanlineUtil::replaceAlpha(c, a);
            c.writeTo(dst, y);
        }
    }
    dst.setFillColor(fill);
}

} // namespace Vn
