#include "IxScanline.h"
#include "Assertions.h"
#include "CoRgbaColor.h"
#include "IxConvertUtil.h"
#include "IxGuardBase.h"

#include <algorithm>
#include <complex>
#include <cstring>
#include <memory>
#include <new>

namespace Vn {

namespace {

constexpr std::size_t kLineAlign = IxTile::MIN_LINE_ALIGN;

// d modulo n, in [0, n).
int floorMod(int d, int n) {
    int const r = d % n;
    return r < 0 ? r + n : r;
}

// The source coordinate of d steps from a region's start under a mirror of period n.
int mirrored(int d, int n) {
    int const r = floorMod(d, n);
    int const q = (d - r) / n;
    return (q & 1) ? n - 1 - r : r;
}

ImPixelFormat imFormat(IxPixelFormat const& f) {
    return ImPixelFormat(f.getComps(), f.getDepth());
}

template <class T>
void convertIn(T* dst, std::byte const* src, int n, IxPixelFormat const& format) {
    if (format.getComps() == IxScanline<T>::PIXEL_FORMAT.getComps() &&
        format.getDepth() == IxScanline<T>::PIXEL_FORMAT.getDepth())
        std::memcpy(static_cast<void*>(dst), src, static_cast<std::size_t>(n) * sizeof(T));
    else
        IxConvertUtil::readFrom(dst, src, n, imFormat(format));
}

template <class T>
void convertOut(std::byte* dst, T const* src, int n, IxPixelFormat const& format) {
    if (format.getComps() == IxScanline<T>::PIXEL_FORMAT.getComps() &&
        format.getDepth() == IxScanline<T>::PIXEL_FORMAT.getDepth())
        std::memcpy(dst, static_cast<void const*>(src), static_cast<std::size_t>(n) * sizeof(T));
    else
        IxConvertUtil::writeTo(dst, src, n, imFormat(format));
}

// The guard whose region holds (x, y), else null; with it, where the next guard of row y
// starts after x (for the end of a hole).
IxReadGuard const* findGuard(IxReadGuard const* const* guards, int nb, int x, int y,
                             int* nextStart) {
    *nextStart = INT32_MAX;
    for (int i = 0; i < nb; ++i) {
        GeRectangle<int> const& r = guards[i]->getPixelRegion();
        if (r.contains(x, y))
            return guards[i];
        if (r.ymin <= y && y < r.ymax && r.xmin > x)
            *nextStart = std::min(*nextStart, r.xmin);
    }
    return nullptr;
}

} // namespace

template <>
IxPixelFormat const IxScanline<float>::PIXEL_FORMAT(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32);
template <>
IxPixelFormat const IxScanline<std::complex<float>>::PIXEL_FORMAT(IxPixelFormat::ALPHA,
                                                                  IxPixelFormat::COMPLEX);
template <>
IxPixelFormat const IxScanline<CoRgbaColorTyped<float>>::PIXEL_FORMAT(IxPixelFormat::RGBA,
                                                                      IxPixelFormat::FLOAT32);

template <class T>
IxScanline<T>::IxScanline(int x0, int x1, IxPaddingPolicy<T> const& padding)
    : _x0(x0), _x1(std::max(x0, x1)), _capacity(_x1 - _x0), _padding(padding) {
    if (_capacity > 0) {
        _data = static_cast<T*>(::operator new(static_cast<std::size_t>(_capacity) * sizeof(T),
                                               std::align_val_t(kLineAlign)));
        std::uninitialized_value_construct_n(_data, _capacity);
    }
}

template <class T>
IxScanline<T>::IxScanline(T* data, int x0, int x1, IxPaddingPolicy<T> const& padding) noexcept
    : _data(data), _x0(x0), _x1(std::max(x0, x1)), _padding(padding) {}

template <class T>
IxScanline<T>::IxScanline(IxWriteGuard const& guard, int y, int x0, int x1,
                          IxPaddingPolicy<T> const& padding)
    : _x0(x0), _x1(std::max(x0, x1)), _padding(padding) {
    VN_ASSERT(guard.getPixelFormat().getComps() == PIXEL_FORMAT.getComps() &&
              guard.getPixelFormat().getDepth() == PIXEL_FORMAT.getDepth());
    GeRectangle<int> const& r = guard.getPixelRegion();
    VN_ASSERT(_x0 == _x1 || (r.contains(_x0, y) && r.contains(_x1 - 1, y)));
    if (_x0 < _x1)
        _data = guard.getPixel<T>(_x0, y);
}

template <class T>
IxScanline<T>::~IxScanline() {
    if (_capacity > 0)
        ::operator delete(_data, std::align_val_t(kLineAlign));
}

template <class T>
void IxScanline<T>::rebuild(int x0, int x1) {
    x1 = std::max(x0, x1);
    VN_ASSERT(_capacity == 0 || x1 - x0 <= _capacity);
    _x0 = x0;
    _x1 = x1;
}

template <class T>
void IxScanline<T>::rebuild(T* data, int x0, int x1) noexcept {
    if (_capacity > 0)
        ::operator delete(_data, std::align_val_t(kLineAlign));
    _capacity = 0;
    _data = data;
    _x0 = x0;
    _x1 = std::max(x0, x1);
}

template <class T>
void IxScanline<T>::readFrom(Vector<IxReadGuard> const& source, int y) {
    constexpr int kOnStack = 16;
    IxReadGuard const* onStack[kOnStack];
    std::unique_ptr<IxReadGuard const*[]> onHeap;
    IxReadGuard const** guards = onStack;
    if (source.size() > kOnStack) {
        onHeap.reset(new IxReadGuard const*[source.size()]);
        guards = onHeap.get();
    }
    int nb = 0;
    for (IxReadGuard const& g : source)
        if (g.holdsMemory() && !g.getPixelRegion().isEmpty())
            guards[nb++] = &g;
    readFrom(guards, nb, y);
}

template <class T>
void IxScanline<T>::readFrom(IxReadGuard const& source, int y) {
    IxReadGuard const* g = &source;
    readFrom(&g, source.holdsMemory() && !source.getPixelRegion().isEmpty() ? 1 : 0, y);
}

template <class T>
void IxScanline<T>::readFrom(IxReadGuard const* const* guards, int nb, int y) {
    if (_x0 >= _x1)
        return;
    auto const mode = _padding.getMode();
    T const& value = _padding.getValue();
    GeRectangle<int> bounds;
    for (int i = 0; i < nb; ++i)
        bounds = bounds.unite(guards[i]->getPixelRegion());
    bool const sourceCoversLine = !bounds.isEmpty() && bounds.xmin <= _x0 && _x1 <= bounds.xmax &&
                                  bounds.ymin <= y && y < bounds.ymax;
    VN_ASSERT(sourceCoversLine || mode != IxPaddingPolicy<T>::NOOP);
    if (bounds.isEmpty()) {
        std::fill(_data, _data + getWidth(), value);
        return;
    }

    int const w = bounds.xmax - bounds.xmin;
    int const h = bounds.ymax - bounds.ymin;
    int sy = y;
    switch (mode) {
    case IxPaddingPolicy<T>::CONSTANT:
        if (y < bounds.ymin || y >= bounds.ymax) {
            std::fill(_data, _data + getWidth(), value);
            return;
        }
        break;
    case IxPaddingPolicy<T>::EDGE:
        sy = std::clamp(y, bounds.ymin, bounds.ymax - 1);
        break;
    case IxPaddingPolicy<T>::REPEAT:
        sy = bounds.ymin + floorMod(y - bounds.ymin, h);
        break;
    case IxPaddingPolicy<T>::MIRROR:
        sy = bounds.ymin + mirrored(y - bounds.ymin, h);
        break;
    default:
        break;
    }

    for (int c = _x0; c < _x1;) {
        T* out = _data + (c - _x0);
        if (c < bounds.xmin || c >= bounds.xmax) {
            int const end = c < bounds.xmin ? std::min(bounds.xmin, _x1) : _x1;
            if (mode == IxPaddingPolicy<T>::CONSTANT) {
                std::fill(out, out + (end - c), value);
                c = end;
                continue;
            }
            if (mode == IxPaddingPolicy<T>::EDGE) {
                int const px = c < bounds.xmin ? bounds.xmin : bounds.xmax - 1;
                int next;
                IxReadGuard const* g = findGuard(guards, nb, px, sy, &next);
                T edge = value;
                if (g)
                    convertIn(&edge, g->getAddress(px, sy), 1, g->getPixelFormat());
                std::fill(out, out + (end - c), edge);
                c = end;
                continue;
            }
            int const d = c - bounds.xmin;
            int const r = floorMod(d, w);
            if (mode == IxPaddingPolicy<T>::MIRROR && (((d - r) / w) & 1)) {
                // A reversed period: read the pixels ending at px, then turn them round.
                int const px = bounds.xmin + w - 1 - r;
                int next;
                IxReadGuard const* g = findGuard(guards, nb, px, sy, &next);
                int const n = std::min({_x1 - c, w - r, g ? px - g->getPixelRegion().xmin + 1 : 1});
                if (g)
                    convertIn(out, g->getAddress(px - n + 1, sy), n, g->getPixelFormat());
                else
                    std::fill(out, out + n, value);
                std::reverse(out, out + n);
                c += n;
                continue;
            }
            // A forward period of REPEAT or MIRROR: copy from the matching source column.
            int const px = bounds.xmin + r;
            int next;
            IxReadGuard const* g = findGuard(guards, nb, px, sy, &next);
            int const n =
                std::min({_x1 - c, w - r,
                          (g ? g->getPixelRegion().xmax : std::min(next, bounds.xmax)) - px});
            if (g)
                convertIn(out, g->getAddress(px, sy), n, g->getPixelFormat());
            else
                std::fill(out, out + n, value);
            c += n;
            continue;
        }
        int next;
        IxReadGuard const* g = findGuard(guards, nb, c, sy, &next);
        if (!g) {
            // A hole between the tiles.
            VN_ASSERT(mode != IxPaddingPolicy<T>::NOOP);
            int const end = std::min({next, bounds.xmax, _x1});
            std::fill(out, out + (end - c), value);
            c = end;
            continue;
        }
        int const n = std::min(g->getPixelRegion().xmax, _x1) - c;
        convertIn(out, g->getAddress(c, sy), n, g->getPixelFormat());
        c += n;
    }
}

template <class T>
void IxScanline<T>::writeTo(IxWriteGuard const& target, int y) const {
    GeRectangle<int> const& r = target.getPixelRegion();
    if (!target.holdsMemory() || y < r.ymin || y >= r.ymax)
        return;
    int const x0 = std::max(_x0, r.xmin);
    int const x1 = std::min(_x1, r.xmax);
    if (x0 >= x1)
        return;
    convertOut(target.getAddress(x0, y), _data + (x0 - _x0), x1 - x0, target.getPixelFormat());
}

template class IxScanline<float>;
template class IxScanline<std::complex<float>>;
template class IxScanline<CoRgbaColorTyped<float>>;

} // namespace Vn
