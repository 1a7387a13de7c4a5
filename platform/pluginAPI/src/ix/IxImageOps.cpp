#include "IxImageOps.h"
#include "IpCopy.h"
#include "IxConvertUtil.h"
#include "IxGuardBase.h"
#include "PxRequestMgr.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Vn {

namespace {
IpPixels pixelsOf(IxGuardBase const& guard, std::byte const* first, int dx = 0, int dy = 0) {
    IxPixelFormat const& f = guard.getPixelFormat();
    return {const_cast<std::byte*>(first), guard.getLineStride(),
            ImPixelFormat(f.getComps(), f.getDepth()), guard.getPixelRegion().translated(dx, dy)};
}

} // namespace

IpPixels ipPixelsOf(IxGuardBase const& guard) {
    return pixelsOf(guard, guard.getFirst());
}

void ipCopy(IxWriteGuard const& dst, IxReadGuard const& src, GeRectangle<int> const& region) {
    ipCopy(pixelsOf(dst, dst.getFirst()), pixelsOf(src, src.getFirst()), region);
}

void ipCopy(IxWriteGuard const& dst, IxReadGuard const& src, GeRectangle<int> const& srcRegion,
            int dx, int dy) {
    // The source seen at its destination place: same memory, region moved.
    ipCopy(pixelsOf(dst, dst.getFirst()), pixelsOf(src, src.getFirst(), dx, dy),
           srcRegion.translated(dx, dy));
}

void ipSet(IxWriteGuard const& dst, GeRectangle<int> const& region,
           CoRgbaColorTyped<float> const& color) {
    ipSet(pixelsOf(dst, dst.getFirst()), region, color);
}

bool ipHoldsPixels(IxGuardBase const& g, IxPixelFormat const& format,
                   GeRectangle<int> const& region) {
    return g.holdsMemory() && g.getFirst() && !region.isEmpty() &&
           g.getPixelRegion().contains(region) &&
           g.getPixelFormat().getComps() == format.getComps() &&
           g.getPixelFormat().getDepth() == format.getDepth();
}

std::pair<std::uintptr_t, std::uintptr_t> ipByteSpan(IxGuardBase const& g) {
    GeRectangle<int> const& r = g.getPixelRegion();
    if (!g.holdsMemory() || !g.getFirst() || r.isEmpty())
        return {0, 0};
    auto const first = reinterpret_cast<std::uintptr_t>(g.getFirst());
    return {first, first + static_cast<std::uintptr_t>(g.getLineStride()) * (r.height() - 1) +
                       static_cast<std::uintptr_t>(r.width()) * g.getPixelSize()};
}

} // namespace Vn

// ---- conversions ----

namespace Vn {

void ipFormatChange(IxWriteGuard const& dst, IxReadGuard const& src,
                    GeRectangle<int> const* region) {
    GeRectangle<int> const r = (region ? *region : src.getPixelRegion())
                                   .intersect(src.getPixelRegion())
                                   .intersect(dst.getPixelRegion());
    IxPixelFormat const& sf = src.getPixelFormat();
    IxPixelFormat const& df = dst.getPixelFormat();
    if (r.isEmpty())
        return;
    IpPixels const s = ipPixelsOf(src);
    IpPixels const d = ipPixelsOf(dst);
    int const w = r.width();
    // Float to half keeping the components is the one conversion the float lines make slow.
    if (sf.getDepth() == IxPixelFormat::FLOAT32 && df.getDepth() == IxPixelFormat::FLOAT16 &&
        sf.getComps() == df.getComps()) {
        for (int y = r.ymin; y < r.ymax; ++y)
            IxConvertUtil::floatsToHalves(reinterpret_cast<std::uint16_t*>(d.address(r.xmin, y)),
                                          reinterpret_cast<float const*>(s.address(r.xmin, y)),
                                          w * sf.getComps());
        return;
    }
    // RGBA float is the lines' own layout: one pass, no line in between.
    bool const fromRgbaFloat =
        sf.getComps() == IxPixelFormat::RGBA && sf.getDepth() == IxPixelFormat::FLOAT32;
    bool const toRgbaFloat =
        df.getComps() == IxPixelFormat::RGBA && df.getDepth() == IxPixelFormat::FLOAT32;
    if (fromRgbaFloat != toRgbaFloat) {
        for (int y = r.ymin; y < r.ymax; ++y) {
            if (fromRgbaFloat)
                IxConvertUtil::writeTo(
                    d.address(r.xmin, y),
                    reinterpret_cast<CoRgbaColorTyped<float> const*>(s.address(r.xmin, y)), w,
                    d.format);
            else
                IxConvertUtil::readFrom(
                    reinterpret_cast<CoRgbaColorTyped<float>*>(d.address(r.xmin, y)),
                    s.address(r.xmin, y), w, s.format);
        }
        return;
    }
    ipCopy(dst, src, r);
}

namespace {
// The taps of one destination pixel: weights of consecutive source pixels from `first`.
struct Taps {
    int first;
    int count;
    int offset; // into the shared weight array
};
} // namespace

void ipAspectChange(IxWriteGuard const& dst, Vector<IxReadGuard> const& srcs,
                    IpFilters::Filter const& filter, GeRectangle<int> const& region) {
    GeRectangle<int> const r = region.intersect(dst.getPixelRegion());
    if (r.isEmpty())
        return;
    if (srcs.empty()) {
        ipSet(dst, r, dst.getTile().getFillColor());
        return;
    }
    using Rgba = CoRgbaColorTyped<float>;
    double const dstAspect = dst.getPixelFormat().getAspectRatio().toDouble();
    double const srcAspect = srcs.front().getPixelFormat().getAspectRatio().toDouble();
    float const ratio = static_cast<float>(dstAspect / srcAspect);
    float const support = IpFilters::Filter::scale(filter.getRadius(), ratio);
    // Shrinking stretches the kernel over the source pixels one destination pixel spans.
    double const stretch = IpFilters::Filter::scale(1.0f, ratio);

    // Pixel k's centre is k + 0.5; destination pixel x has its centre at (x + 0.5) * ratio.
    Vector<Taps> taps(static_cast<std::size_t>(r.width()));
    Vector<float> weights;
    int spanMin = 0;
    int spanMax = 0;
    for (int x = r.xmin; x < r.xmax; ++x) {
        double const c = (x + 0.5) * static_cast<double>(ratio);
        int const k0 = static_cast<int>(std::floor(c - support));
        int const k1 = static_cast<int>(std::ceil(c + support));
        Taps& t = taps[static_cast<std::size_t>(x - r.xmin)];
        t.first = k0;
        t.count = k1 - k0 + 1;
        t.offset = static_cast<int>(weights.size());
        double sum = 0.0;
        for (int k = k0; k <= k1; ++k) {
            float const w = filter.evaluate(static_cast<float>((k + 0.5 - c) / stretch));
            weights.push_back(w);
            sum += w;
        }
        if (sum != 0.0)
            for (int i = 0; i < t.count; ++i)
                weights[static_cast<std::size_t>(t.offset + i)] /= static_cast<float>(sum);
        spanMin = x == r.xmin ? k0 : std::min(spanMin, k0);
        spanMax = std::max(spanMax, k1 + 1);
    }

    Rgba const fill = srcs.front().getTile().getFillColor();
    Vector<Rgba> line(static_cast<std::size_t>(spanMax - spanMin));
    Vector<Rgba> out(static_cast<std::size_t>(r.width()));
    IpPixels const d = ipPixelsOf(dst);
    for (int y = r.ymin; y < r.ymax; ++y) {
        if (PxRequestMgr::isInitialized())
            PxRequestMgr::getInstance().checkCancelled();
        std::fill(line.begin(), line.end(), fill);
        for (IxReadGuard const& g : srcs) {
            GeRectangle<int> const sr = g.getPixelRegion().intersect({spanMin, spanMax, y, y + 1});
            if (sr.isEmpty())
                continue;
            IpPixels const s = ipPixelsOf(g);
            IxConvertUtil::readFrom(line.data() + (sr.xmin - spanMin), s.address(sr.xmin, y),
                                    sr.width(), s.format);
        }
        for (int x = r.xmin; x < r.xmax; ++x) {
            Taps const& t = taps[static_cast<std::size_t>(x - r.xmin)];
            Rgba const* p = line.data() + (t.first - spanMin);
            float const* w = weights.data() + t.offset;
            float cr = 0.0f, cg = 0.0f, cb = 0.0f, ca = 0.0f;
            for (int i = 0; i < t.count; ++i) {
                cr += w[i] * p[i].r;
                cg += w[i] * p[i].g;
                cb += w[i] * p[i].b;
                ca += w[i] * p[i].a;
            }
            out[static_cast<std::size_t>(x - r.xmin)] = Rgba{cr, cg, cb, ca};
        }
        IxConvertUtil::writeTo(d.address(r.xmin, y), out.data(), r.width(), d.format);
    }
}

} // namespace Vn
