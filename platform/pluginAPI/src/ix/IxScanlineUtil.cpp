#include "IxScanlineUtil.h"

#include "Assertions.h"

#include <cstring>

namespace Vn {

namespace {
template <class D, class S>
void checkCovers(IxScanline<D> const& dst, IxScanline<S> const& src) {
    // clang-format off
    VN_ASSERT(dst.getWidth() == 0 || (src.getX0() <= dst.getX0() && dst.getX1() <= src.getX1()));
    // clang-format on
}
} // namespace

void IxScanlineUtil::extractChannel(IxScanline<float>& dst,
                                    IxScanline<CoRgbaColorTyped<float>> const& src, int channel) {
    VN_ASSERT(0 <= channel && channel < 4);
    checkCovers(dst, src);
    float* d = dst.getData();
    // The colour is four packed floats: read channel c of each.
    float const* s = reinterpret_cast<float const*>(&src[dst.getX0()]) + channel;
    int const n = dst.getWidth();
    for (int i = 0; i < n; ++i)
        d[i] = s[4 * i];
}

void IxScanlineUtil::copy(IxScanline<float>& dst, IxScanline<float> const& src) {
    checkCovers(dst, src);
    if (dst.getWidth() > 0 && dst.getData() != &src[dst.getX0()])
        std::memmove(dst.getData(), &src[dst.getX0()],
                     sizeof(float) * static_cast<std::size_t>(dst.getWidth()));
}

void IxScanlineUtil::copy(IxScanline<CoRgbaColorTyped<float>>& dst,
                          IxScanline<CoRgbaColorTyped<float>> const& src) {
    checkCovers(dst, src);
    if (dst.getWidth() > 0 && dst.getData() != &src[dst.getX0()])
        std::memmove(static_cast<void*>(dst.getData()), &src[dst.getX0()],
                     sizeof(CoRgbaColorTyped<float>) * static_cast<std::size_t>(dst.getWidth()));
}

void IxScanlineUtil::replaceAlpha(IxScanline<CoRgbaColorTyped<float>>& dst,
                                  IxScanline<float> const& alpha) {
    checkCovers(dst, alpha);
    CoRgbaColorTyped<float>* d = dst.getData();
    float const* a = &alpha[dst.getX0()];
    int const n = dst.getWidth();
    for (int i = 0; i < n; ++i)
        d[i].a = a[i];
}

} // namespace Vn
