#include "ExBase.h"
#include "ImageTestSupport.h"
#include "IxConvertUtil.h"
#include "IxScanline.h"
#include "IxScanlineCache.h"
#include "IxScanlineCacheImp.h"
#include "IxWriteGuardProxy.h"

#include <gtest/gtest.h>

#include <complex>
#include <functional>
#include <optional>
#include <tuple>
#include <vector>

using namespace Vn;
using namespace VnTest;

namespace {

template <class T>
T make(float v);
template <>
float make<float>(float v) {
    return v;
}
template <>
std::complex<float> make<std::complex<float>>(float v) {
    return {v, -v};
}
template <>
CoRgbaColorTyped<float> make<CoRgbaColorTyped<float>>(float v) {
    return {v, v + 0.5f, -v, 1.0f};
}

float valueAt(int x, int y) {
    return static_cast<float>(y * 10000 + x);
}

std::string assertionText(std::function<void()> const& f) {
    try {
        f();
    } catch (ExAssertionFailed const& e) {
        return e.getReason();
    }
    return "(no assertion)";
}

template <class T>
void fillHorizontal(IxScanlineCache<T>& cache, GeRectangle<int> const& h) {
    IxWriteGuard const& g = *cache.getHorizontalBuffer();
    ASSERT_EQ(g.getPixelRegion(), h);
    for (int y = h.ymin; y < h.ymax; ++y)
        for (int x = h.xmin; x < h.xmax; ++x)
            *g.getPixel<T>(x, y) = make<T>(valueAt(x, y));
}

} // namespace

template <class T>
class ScanlineCache : public ImageTest {};

using CacheTypes = ::testing::Types<float, std::complex<float>, CoRgbaColorTyped<float>>;
TYPED_TEST_SUITE(ScanlineCache, CacheTypes);

TYPED_TEST(ScanlineCache, IdentityColumnsReproduceTheInput) {
    using T = TypeParam;
    constexpr int B = IxScanlineCacheImp<T>::BLOCK_WIDTH;
    T const marker = make<T>(-7.0f);
    // Every transposition path the processor has; the last is the best, which stays in force.
    std::vector<IxConvertUtil::VectorPath> paths{IxConvertUtil::VectorPath::SSE2};
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        paths.push_back(IxConvertUtil::VectorPath::AVX512);
    for (IxConvertUtil::VectorPath const path : paths)
        for (int width : {1, B - 1, B, B + 1, 2 * B + 3, 3 * B}) {
            IxConvertUtil::limitVectorPath(path);
            // Destination as tall as, taller than and shorter than the source; heights that take
            // the groups of eight and four rows and leave some over.
            // The results in the cache's own buffer, or in a larger target that keeps the rest.
            for (auto [dstH, srcH, over] :
                 {std::tuple{6, 6, false}, std::tuple{9, 5, true}, std::tuple{3, 7, false},
                  std::tuple{3, 7, true}, std::tuple{22, 19, false}, std::tuple{13, 26, true}}) {
                GeRectangle<int> const dst(-5, -5 + width, 100, 100 + dstH);
                GeRectangle<int> const src(0, 1, -20, -20 + srcH);
                GeRectangle<int> const around(dst.xmin - 3, dst.xmax + 2, dst.ymin - 1,
                                              dst.ymax + 4);
                IxWriteGuard const target(IxTile(IxScanline<T>::PIXEL_FORMAT, around, {}));
                for (int y = around.ymin; y < around.ymax; ++y)
                    for (int cx = around.xmin; cx < around.xmax; ++cx)
                        *target.getPixel<T>(cx, y) = marker;
                std::optional<IxScanlineCache<T>> cache;
                if (over)
                    cache.emplace(dst, src, target);
                else
                    cache.emplace(dst, src);
                fillHorizontal(*cache, {dst.xmin, dst.xmax, src.ymin, src.ymax});
                int x = dst.xmin;
                while (cache->hasNext()) {
                    IxScanline<T>* d = nullptr;
                    IxScanline<T>* s = nullptr;
                    cache->getNext(d, s);
                    ASSERT_EQ(s->getX0(), src.ymin);
                    ASSERT_EQ(s->getWidth(), srcH);
                    ASSERT_EQ(d->getX0(), dst.ymin);
                    ASSERT_EQ(d->getWidth(), dstH);
                    for (int i = 0; i < dstH; ++i)
                        (*d)[dst.ymin + i] = i < srcH ? (*s)[src.ymin + i] : marker;
                    ++x;
                }
                EXPECT_EQ(x, dst.xmax);
                cache->flush();
                IxWriteGuard const v = cache->getVerticalBuffer();
                ASSERT_EQ(v.getPixelRegion(), dst);
                for (int y = around.ymin; y < around.ymax; ++y)
                    for (int cx = around.xmin; cx < around.xmax; ++cx) {
                        int const i = y - dst.ymin;
                        T want = i < srcH ? make<T>(valueAt(cx, src.ymin + i)) : marker;
                        if (!dst.contains(cx, y))
                            want = marker;
                        else if (!over)
                            ASSERT_EQ(*v.getPixel<T>(cx, y), want);
                        ASSERT_EQ(*target.getPixel<T>(cx, y), over ? want : marker)
                            << "path " << int(path) << " width " << width << " dst " << dstH
                            << " src " << srcH << " x " << cx << " y " << y;
                    }
            }
        }
}

TYPED_TEST(ScanlineCache, CallsOutOfOrderAreRefused) {
    using T = TypeParam;
    constexpr int B = IxScanlineCacheImp<T>::BLOCK_WIDTH;
    GeRectangle<int> const r(0, B + 2, 0, 4);
    IxScanline<T>* d = nullptr;
    IxScanline<T>* s = nullptr;
    {
        IxScanlineCache<T> cache(r, r);
        for (int i = 0; i < B + 2; ++i)
            cache.getNext(d, s);
        EXPECT_FALSE(cache.hasNext());
        EXPECT_EQ(assertionText([&] { cache.getNext(d, s); }), "hasNext()");
        cache.flush();
        EXPECT_EQ(assertionText([&] { cache.getNext(d, s); }), "!_flushCalled");
    }
    // A target that lacks a row of the region, or holds another format, is refused.
    for (IxTile const& t :
         {IxTile(IxScanline<T>::PIXEL_FORMAT, {0, B + 2, 1, 4}, {}),
          IxTile(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8), {0, B + 2, 0, 4}, {})})
        EXPECT_NE(assertionText([&] {
                      IxScanlineCache<T>(r, r, IxWriteGuard(t));
                  }).find("the target holds dst in the cache's format"),
                  std::string::npos);
    // Columns handed out and never flushed: the cache says so when it goes.
    auto* imp = new IxScanlineCacheImp<T>(r, r);
    imp->init(r, r);
    imp->getNext(d, s);
    EXPECT_EQ(assertionText([&] { delete imp; }),
              "std::uncaught_exception() || _nbAccumulated == 0");
    // Unless something else is already failing.
    try {
        IxScanlineCacheImp<T> failing(r, r);
        failing.init(r, r);
        failing.getNext(d, s);
        throw std::runtime_error("filter failed");
    } catch (std::runtime_error const&) {
    }
}

TYPED_TEST(ScanlineCache, FlushWritesTheWholeLastBlock) {
    using T = TypeParam;
    GeRectangle<int> const r(0, 4, 0, 3);
    IxScanlineCache<T> cache(r, r);
    fillHorizontal(cache, r);
    IxScanline<T>* d = nullptr;
    IxScanline<T>* s = nullptr;
    for (int i = 0; i < 2; ++i) {
        cache.getNext(d, s);
        for (int y = 0; y < 3; ++y)
            (*d)[y] = make<T>(-1.0f - i);
    }
    cache.flush();
    IxWriteGuard const v = cache.getVerticalBuffer();
    EXPECT_EQ(*v.getPixel<T>(0, 2), make<T>(-1.0f));
    EXPECT_EQ(*v.getPixel<T>(1, 2), make<T>(-2.0f));
    // Column 2 was not handed out; its scratch line still holds the source of column 1.
    EXPECT_EQ(*v.getPixel<T>(2, 2), make<T>(valueAt(1, 2)));
}

TYPED_TEST(ScanlineCache, PrefetchHintIsChecked) {
    using T = TypeParam;
    GeRectangle<int> const r(0, 4, 0, 8);
    EXPECT_EQ(IxScanlineCacheImp<T>::getPrefetchHint(), 3);
    EXPECT_EQ(IxScanlineCacheImp<T>::getPrefetchDistance(), 1);
    for (int hint = 0; hint <= 3; ++hint) {
        IxScanlineCacheImp<T>::setPrefetchHint(hint);
        IxScanlineCacheImp<T>::setPrefetchDistance(hint + 1);
        IxScanlineCache<T> cache(r, r);
        fillHorizontal(cache, r);
        IxScanline<T>* d = nullptr;
        IxScanline<T>* s = nullptr;
        cache.getNext(d, s);
        EXPECT_EQ((*s)[5], make<T>(valueAt(0, 5)));
        cache.flush();
    }
    IxScanlineCacheImp<T>::setPrefetchHint(4);
    {
        IxScanlineCache<T> cache(r, r);
        IxScanline<T>* d = nullptr;
        IxScanline<T>* s = nullptr;
        EXPECT_THROW(cache.getNext(d, s), ExProgramAborted);
    }
    IxScanlineCacheImp<T>::setPrefetchHint(3);
    IxScanlineCacheImp<T>::setPrefetchDistance(1);
}
