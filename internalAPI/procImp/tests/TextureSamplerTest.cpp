#include "AllocationCounting.h"
#include "EngineTestSupport.h"
#include "ExBase.h"
#include "ImageTestGraph.h"
#include "IxConvertUtil.h"
#include "IxPixelUtil.h"
#include "PxConfig.h"
#include "PxEWASampler.h"
#include "PxImageTexture.h"
#include "PxSamplers.h"
#include "SamplerTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <typeinfo>

using namespace VnTest;
using namespace Vn;

namespace {

class TextureSampler : public EngineTest {};

Color unpremultiplyRef(Color const& c) {
    float const a = std::fabs(c.a) >= 1e-8f ? c.a : 0.0f;
    float const e = IpFastMath::rcp(a);
    float const one = IpFastMath::rcp(1.0f);
    auto fin = [](float v) {
        return std::isfinite(v) ? v : 0.0f;
    };
    return {fin(c.r * e), fin(c.g * e), fin(c.b * e), fin(c.a * one)};
}

Color lerpRef(Color const& a, Color const& b, float t) {
    return {a.r + t * (b.r - a.r), a.g + t * (b.g - a.g), a.b + t * (b.b - a.b),
            a.a + t * (b.a - a.a)};
}

void mitchellRef(float t, float w[4]) {
    float const x[4] = {t + 1.0f, t, 1.0f - t, 2.0f - t}; // distances to the taps
    // |x| < 1: (7/6)|x|^3 - 2|x|^2 + 8/9; 1 <= |x| < 2: (-7/18)|x|^3 + 2|x|^2 - (10/3)|x| + 16/9,
    // each evaluated on the signed argument of its tap.
    float const u[4] = {t + 1.0f, t, t - 1.0f, t - 2.0f};
    (void)x;
    w[0] =
        ((float(-7.0 / 18.0) * u[0] + 2.0f) * u[0] + float(-10.0 / 3.0)) * u[0] + float(16.0 / 9.0);
    w[1] = ((float(7.0 / 6.0) * u[1] - 2.0f) * u[1] + 0.0f) * u[1] + float(8.0 / 9.0);
    w[2] = ((float(-7.0 / 6.0) * u[2] - 2.0f) * u[2] + 0.0f) * u[2] + float(8.0 / 9.0);
    w[3] =
        ((float(7.0 / 18.0) * u[3] + 2.0f) * u[3] + float(10.0 / 3.0)) * u[3] + float(16.0 / 9.0);
}

Color weigh(Color const* p, float const* w) {
    return {(p[0].r * w[0] + p[1].r * w[1]) + (p[2].r * w[2] + p[3].r * w[3]),
            (p[0].g * w[0] + p[1].g * w[1]) + (p[2].g * w[2] + p[3].g * w[3]),
            (p[0].b * w[0] + p[1].b * w[1]) + (p[2].b * w[2] + p[3].b * w[3]),
            (p[0].a * w[0] + p[1].a * w[1]) + (p[2].a * w[2] + p[3].a * w[3])};
}

Color referenceSample(ReferenceSampler const& ref, GePoint<double> const& p) {
    double x = 0;
    double y = 0;
    ref.map(p, x, y);
    int const ix = ReferenceSampler::floorOf(x);
    int const iy = ReferenceSampler::floorOf(y);
    float const fx = static_cast<float>(x - ix);
    float const fy = static_cast<float>(y - iy);
    switch (ref.params.filter) {
    case SdTextureTypes::FILTER_NEAREST:
        return ref.texel(ix, iy);
    case SdTextureTypes::FILTER_BILINEAR: {
        Color const top = lerpRef(ref.texel(ix, iy), ref.texel(ix + 1, iy), fx);
        Color const bottom = lerpRef(ref.texel(ix, iy + 1), ref.texel(ix + 1, iy + 1), fx);
        Color const c = lerpRef(top, bottom, fy);
        return ref.premultiply ? unpremultiplyRef(c) : c;
    }
    default: {
        float wx[4];
        float wy[4];
        mitchellRef(fx, wx);
        mitchellRef(fy, wy);
        Color rows[4];
        for (int j = 0; j < 4; ++j) {
            Color const p4[4] = {ref.texel(ix - 1, iy - 1 + j), ref.texel(ix, iy - 1 + j),
                                 ref.texel(ix + 1, iy - 1 + j), ref.texel(ix + 2, iy - 1 + j)};
            rows[j] = weigh(p4, wx);
        }
        return unpremultiplyRef(weigh(rows, wy));
    }
    }
}

OPtr<SdTextureSampler> makeSampler(TestImage const& img, SdTextureParams const& params,
                                   OPtr<PxImageFetcherBase> fetcher = {}) {
    if (!fetcher)
        fetcher = img.fetcher();
    switch (params.filter) {
    case SdTextureTypes::FILTER_NEAREST:
        return makeOPtr<PxNearestSampler>(std::move(fetcher), img.format, params);
    case SdTextureTypes::FILTER_BILINEAR:
        if (img.format.getComps() == IxPixelFormat::RGB)
            return makeOPtr<PxBilinearRGBSampler>(std::move(fetcher), img.format, params);
        return makeOPtr<PxBilinearSampler>(std::move(fetcher), img.format, params);
    default:
        return makeOPtr<PxMitchellSampler>(std::move(fetcher), img.format, params);
    }
}

// Texture space in pixels of the region: (x, y) samples around pixel (x, y).
SdTextureParams pixelParams(GeRectangle<int> const& r, int filter, int wrapS, int wrapT) {
    SdTextureParams p;
    p.filter = filter;
    p.wrapS = wrapS;
    p.wrapT = wrapT;
    float const w = static_cast<float>(r.width());
    float const h = static_cast<float>(r.height());
    float const m[9] = {1.0f / w, 0, 0, 0, 1.0f / h, 0, -r.xmin / w, -r.ymin / h, 1};
    std::copy(m, m + 9, p.matrix);
    return p;
}

// The vector paths this processor has, the best last so that it stays in force.
std::vector<IxConvertUtil::VectorPath> vectorPaths() {
    std::vector<IxConvertUtil::VectorPath> paths{IxConvertUtil::VectorPath::SSE2};
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        paths.push_back(IxConvertUtil::VectorPath::AVX2);
    return paths;
}

} // namespace

TEST_F(TextureSampler, PlainFiltersMatchACachelessReferenceBitForBit) {
    struct Case {
        GeRectangle<int> region;
        int tileExp;
    };
    Case const cases[] = {
        {{-64, 0, -32, 32}, 5},   // negative origin, exact positions, 2 x 2 tiles
        {{3, 4, -7, 30}, 5},      // a single column
        {{-45, 190, -20, 75}, 5}, // many small tiles, unaligned
        {{-300, 700, 100, 160}, 9},
    };
    int const comps[] = {IxPixelFormat::ALPHA, IxPixelFormat::RGB, IxPixelFormat::RGBA};
    int const depths[] = {IxPixelFormat::UINT8, IxPixelFormat::FLOAT16, IxPixelFormat::FLOAT32};
    std::mt19937 rng(7);
    unsigned seed = 1;
    long compared = 0;
    for (Case const& c : cases)
        for (int comp : comps)
            for (int depth : depths) {
                TestImage const img =
                    randomImage(IxPixelFormat(comp, depth), c.region, c.tileExp, seed++);
                for (int filter : {0, 1, 3})
                    for (int wrap = 0; wrap < 4; ++wrap) {
                        // The rows wrap differently from the columns in half the runs.
                        int const wrapT = (wrap + (seed & 1)) % 4;
                        SdTextureParams const params = pixelParams(c.region, filter, wrap, wrapT);
                        bool const premult = filter != 0 && !(filter == 1 && comp == 3);
                        ReferenceSampler const ref(img, params, premult);
                        std::uniform_real_distribution<double> px(c.region.xmin - 45.0,
                                                                  c.region.xmax + 45.0);
                        std::uniform_real_distribution<double> py(c.region.ymin - 45.0,
                                                                  c.region.ymax + 45.0);
                        GePoint<double> points[60];
                        for (int i = 0; i < 60; ++i) {
                            points[i] = {px(rng), py(rng)};
                            if (i % 6 == 0) // exact integers, negative ones included
                                points[i] = {std::floor(points[i].x) + (filter ? 0.5 : 0.0),
                                             std::floor(points[i].y) + (filter ? 0.5 : 0.0)};
                        }
                        GePoint<double> const start{px(rng), py(rng)};
                        GeVector2<double> const step{double(int(rng() % 7) - 3) * 0.37,
                                                     double(int(rng() % 5) - 2) * 0.61};
                        // Points and a row on each vector path the processor has, each path
                        // filling its own cache; the row reads its positions as points do.
                        for (auto path : vectorPaths()) {
                            IxConvertUtil::limitVectorPath(path);
                            ASSERT_EQ(IxConvertUtil::getVectorPath(), path);
                            OPtr<SdTextureSampler> const s = makeSampler(img, params);
                            for (GePoint<double> const& p : points) {
                                Color const got = s->sample(p, GeLinearMatrix2<double>());
                                Color const want = referenceSample(ref, p);
                                ASSERT_TRUE(sameBits(got, want))
                                    << "filter " << filter << " wrap " << wrap << "/" << wrapT
                                    << " format " << comp << "x" << depth << " path " << int(path)
                                    << " at " << p.x << "," << p.y << ": " << got.r << " " << got.g
                                    << " " << got.b << " " << got.a << " vs " << want.r << " "
                                    << want.g << " " << want.b << " " << want.a;
                                ++compared;
                            }
                            Color row[67]; // crosses a chunk of positions
                            s->sampleRow(start, step, 67, GeLinearMatrix2<float>(), row);
                            for (int i = 0; i < 67; ++i)
                                ASSERT_TRUE(sameBits(
                                    row[i], referenceSample(ref, SdTextureSampler::rowPosition(
                                                                     start, step, i))))
                                    << "row position " << i << " filter " << filter << " path "
                                    << int(path);
                        }
                    }
            }
    EXPECT_EQ(compared, 4L * 9 * 3 * 4 * 60 * long(vectorPaths().size()));
}

TEST_F(TextureSampler, RowsDivideOutEveryAlphaAsThePointFormDoes) {
    // Alphas about the divisor rule's threshold, signed zeros, subnormals and non-finite ones,
    // divided four at a time in rows and one at a time at points.
    float const inf = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const alphas[] = {0.0f, -0.0f, 1e-9f, -1e-9f, 1e-8f,  -1e-8f, 1.0f,  0.5f, -0.25f,
                            inf,  -inf,  nan,   1e30f,  3e-39f, 2.0f,   1e-7f, 0.3f, 7.0f};
    int const n = int(std::size(alphas));
    GeRectangle<int> const r{0, n, 0, 2};
    TestImage const img = makeImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32), r,
                                    5, [&](int x, int y) {
                                        float const a = alphas[(x + y) % n];
                                        return Color{0.25f, -0.75f, float(y), a};
                                    });
    for (int filter : {1, 3})
        for (auto path : vectorPaths()) {
            IxConvertUtil::limitVectorPath(path);
            auto const s = makeSampler(img, pixelParams(r, filter, 1, 1));
            std::vector<Color> row(static_cast<std::size_t>(2 * n));
            GePoint<double> const start{-0.25, 0.75};
            GeVector2<double> const step{0.5, 0.0};
            s->sampleRow(start, step, 2 * n, GeLinearMatrix2<float>(), row.data());
            for (int i = 0; i < 2 * n; ++i) {
                Color const want = s->sample(SdTextureSampler::rowPosition(start, step, i),
                                             GeLinearMatrix2<double>());
                ASSERT_TRUE(sameBits(row[i], want))
                    << "filter " << filter << " path " << int(path) << " position " << i;
            }
        }
}

TEST_F(TextureSampler, EdgesFormatsAndBadPositions) {
    GeRectangle<int> const r{0, 8, 0, 8};
    TestImage const img = makeImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32), r,
                                    5, [](int x, int y) {
                                        return Color{x / 8.0f, y / 8.0f, 0.5f, 0.5f};
                                    });
    // Black wrap: 40 pixels out is clamped to 32 out, and reads nothing.
    auto bilinear = makeSampler(img, pixelParams(r, 1, 0, 0));
    EXPECT_TRUE(sameBits(bilinear->sample(GePoint<double>{-40.0, 3.5}, GeLinearMatrix2<double>()),
                         Color{}));
    EXPECT_TRUE(
        sameBits(bilinear->sample(GePoint<double>{3.5, 48.0}, GeLinearMatrix2<double>()), Color{}));
    // Mirror: the edge pixel repeats once at the fold. An exact negative integer lands one
    // below itself.
    auto mirror = makeSampler(img, pixelParams(r, 0, 3, 3));
    auto red = [&](double x) {
        return mirror->sample(GePoint<double>{x, 2.0}, GeLinearMatrix2<double>()).r;
    };
    EXPECT_FLOAT_EQ(red(-0.5), 0.0f);
    EXPECT_FLOAT_EQ(red(-1.5), 1.0f / 8.0f);
    EXPECT_FLOAT_EQ(red(-1.0), 1.0f / 8.0f);
    EXPECT_FLOAT_EQ(red(8.5), 7.0f / 8.0f);
    EXPECT_FLOAT_EQ(red(17.5), 1.0f / 8.0f);
    // Non-finite positions and matrices land on the clamp box, never in undefined land.
    double const inf = std::numeric_limits<double>::infinity();
    double const nan = std::numeric_limits<double>::quiet_NaN();
    for (auto const& p :
         {GePoint<double>{nan, 1.0}, GePoint<double>{inf, -inf}, GePoint<double>{1e300, nan}}) {
        Color const c = bilinear->sample(p, GeLinearMatrix2<double>());
        EXPECT_TRUE(std::isfinite(c.r) && std::isfinite(c.a));
        // The row form clamps them the same way.
        GeVector2<double> const step{nan, 1.0};
        Color row[3];
        bilinear->sampleRow(p, step, 3, GeLinearMatrix2<float>(), row);
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(sameBits(row[i], bilinear->sample(SdTextureSampler::rowPosition(p, step, i),
                                                          GeLinearMatrix2<double>())));
    }
    SdTextureParams bad = pixelParams(r, 3, 2, 2);
    bad.matrix[0] = std::numeric_limits<float>::quiet_NaN();
    bad.matrix[7] = std::numeric_limits<float>::infinity();
    Color const c =
        makeSampler(img, bad)->sample(GePoint<double>{2.0, 2.0}, GeLinearMatrix2<double>());
    EXPECT_TRUE(std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.a));
    // The integer form reads the wrapped pixel, straight.
    EXPECT_FLOAT_EQ(mirror->sample(-1, 2, 0.0f, 0.0f).r, 0.0f);
    EXPECT_FLOAT_EQ(bilinear->sample(5, 2, 0.0f, 0.0f).r, 5.0f / 8.0f);
    // Only the EWA sampler has footprint forms.
    EXPECT_THROW(bilinear->sample(1, 1, 1.0f, 0.0f, 0.0f, 1.0f), ExBase);

    // NOOP wrap must not read outside, even to fill a block: an assertion, with its text.
    GeRectangle<int> const whole{0, 64, 0, 32};
    TestImage const covering = makeImage(img.format, whole, 5, [](int x, int) {
        return Color{x / 64.0f, 0, 0, 1};
    });
    auto noop = makeSampler(covering, pixelParams(whole, 0, 4, 4));
    EXPECT_FLOAT_EQ(noop->sample(GePoint<double>{7.0, 7.0}, GeLinearMatrix2<double>()).r,
                    7.0f / 64.0f);
    // Outside in columns, in rows, or both; in the point and the row forms.
    for (GePoint<double> const p : {GePoint<double>{-3.0, 2.0}, GePoint<double>{2.0, -3.0},
                                    GePoint<double>{2.0, 9.0}, GePoint<double>{9.0, 9.0}})
        for (int form = 0; form < 2; ++form) {
            auto outside = makeSampler(img, pixelParams(r, 0, 4, 4));
            Color row[2];
            try {
                if (form)
                    outside->sampleRow(p, {0.0, 0.0}, 2, GeLinearMatrix2<float>(), row);
                else
                    outside->sample(p, GeLinearMatrix2<double>());
                ADD_FAILURE() << "no assertion at " << p.x << "," << p.y;
            } catch (ExBase const& e) {
                EXPECT_NE(std::string(e.what()).find(
                              "Source tiles must cover the scanline region in NOOP padding mode."),
                          std::string::npos)
                    << e.what();
            }
        }

    // An alpha image reads as grey with its alpha; premultiplying leaves it so.
    TestImage const alpha =
        makeImage(IxPixelFormat(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32), r, 5, [](int, int) {
            return Color{0, 0, 0, 0.25f};
        });
    EXPECT_TRUE(sameBits(makeSampler(alpha, pixelParams(r, 0, 0, 0))
                             ->sample(GePoint<double>{2.0, 2.0}, GeLinearMatrix2<double>()),
                         Color{0.25f, 0.25f, 0.25f, 0.25f}));
    Color const straight = makeSampler(alpha, pixelParams(r, 1, 0, 0))
                               ->sample(GePoint<double>{2.5, 2.5}, GeLinearMatrix2<double>());
    EXPECT_FLOAT_EQ(straight.r, 1.0f);
    EXPECT_FLOAT_EQ(straight.a, 0.25f);
}

namespace {

// Counts the block rows the sampler fills (it asks for the region once per row); may give a
// region narrower than the tiles, and one tile for every pixel.
class CountingFetcher final : public PxImageFetcherBase {
public:
    explicit CountingFetcher(OPtr<PxImageFetcherBase> inner, GeRectangle<int> region = {})
        : _inner(std::move(inner)), _region(region) {}
    GeRectangle<int> getImageRegion() const override {
        ++rows;
        return _region.isEmpty() ? _inner->getImageRegion() : _region;
    }
    IxReadGuard const& getGuard(int x, int y) const override {
        return fixed ? *fixed : _inner->getGuard(x, y);
    }
    IxReadGuard const* fixed = nullptr;
    void releaseTiles() const override { _inner->releaseTiles(); }
    void releaseGuard() const override { _inner->releaseGuard(); }
    void registerGuardProxy(IxGuardProxy const& p) const override { _inner->registerGuardProxy(p); }
    void reduceVI(PxValidityInterval& vi) const override { _inner->reduceVI(vi); }
    mutable long rows = 0;

private:
    OPtr<PxImageFetcherBase> _inner;
    GeRectangle<int> _region;
};

} // namespace

TEST_F(TextureSampler, BlockedWalkFillsEachCacheBlockOnceAndAllocatesNothing) {
    // 192 x 192 pixels and the bilinear's one-pixel border: 7 x 7 blocks, one per slot.
    GeRectangle<int> const r{0, 192, 0, 192};
    TestImage const img =
        randomImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8), r, 9, 3);
    auto* counting = new CountingFetcher(img.fetcher());
    SdTextureParams const params = pixelParams(r, 1, 0, 0);
    PxBilinearSampler const s(OPtr<PxImageFetcherBase>(counting), img.format, params);
    long const atStart = counting->rows;
    double sum = 0;
    CountAllocations allocations;
    int const bx = s.getCacheBlockingSizeX();
    int const by = s.getCacheBlockingSizeY();
    for (int y0 = 0; y0 < 192; y0 += by)
        for (int x0 = 0; x0 < 192; x0 += bx)
            for (int y = y0; y < y0 + by; ++y)
                for (int x = x0; x < x0 + bx; ++x)
                    sum += s.sample(GePoint<double>{x + 0.5, y + 0.5}, GeLinearMatrix2<double>()).g;
    EXPECT_EQ(allocations.count(), 0);
    EXPECT_EQ(counting->rows - atStart, 49 * 32);
    EXPECT_GT(sum, 0.0);
    // The row form walks the same blocks, now resident: no refill, no allocation.
    Color row[64];
    for (int y = 0; y < 192; ++y)
        for (int x0 = 0; x0 < 192; x0 += 64)
            s.sampleRow(GePoint<double>{x0 + 0.5, y + 0.5}, GeVector2<double>{1.0, 0.0}, 64,
                        GeLinearMatrix2<float>(), row);
    EXPECT_EQ(allocations.count(), 0);
    EXPECT_EQ(counting->rows - atStart, 49 * 32);
}

TEST_F(TextureSampler, ReadsAnImageNodeThroughTheEngineAndNarrowsValidity) {
    ColorSourceDesc source;
    source.width = 100;
    source.height = 80;
    source.colorVI = PxValidityInterval(0.0, 2.0);
    auto const node = colorSource(source);
    GeRectangle<int> const region{0, 100, 0, 80};
    Color inside;
    Color outside;
    PxValidityInterval vi = PxValidityInterval::FULL;
    runAndWait(new FnRequest([&] {
        PxBilinearSampler const s(
            PxNodePtr<PxImageProtocol const>(node), PxTimeScaleContext(0.5, 0),
            node->getImageFormat().getPixelFormat(), pixelParams(region, 1, 0, 0));
        EXPECT_EQ(s.getImageRegion(), region);
        inside = s.sample(GePoint<double>{0.5, 79.5}, GeLinearMatrix2<double>());
        outside = s.sample(GePoint<double>{105.0, 0.0}, GeLinearMatrix2<double>());
        s.reduceVI(vi);
        // Tiles stay, guards reopen on the next miss; released tiles are fetched again.
        for (int release = 0; release < 2; ++release) {
            release ? s.releaseTiles() : s.releaseGuard();
            // A block not yet cached: its tile is read again.
            Color const again =
                s.sample(GePoint<double>{40.5 - 30 * release, 40.5}, GeLinearMatrix2<double>());
            EXPECT_NEAR(again.g, 0.5f, 1e-5f) << "after " << release;
            EXPECT_NEAR(again.a, 1.0f, 1e-5f) << "after " << release;
        }
    }));
    EXPECT_NEAR(inside.r, 0.25f, 1e-5f);
    EXPECT_NEAR(inside.b, 0.75f, 1e-5f);
    EXPECT_NEAR(inside.a, 1.0f, 1e-5f);
    EXPECT_TRUE(sameBits(outside, Color{}));
    EXPECT_EQ(vi, PxValidityInterval(0.0, 2.0));
}

TEST_F(TextureSampler, TilesWiderThanTheRegionAreReadOnlyInsideIt) {
    // Tiles of 32 over 64 x 32 pixels, of which the image is 40 x 24: what lies beyond is poison
    // that no wrap may read.
    GeRectangle<int> const r{0, 40, 0, 24};
    TestImage img = makeImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                              {0, 64, 0, 32}, 5, [&](int x, int y) {
                                  return r.contains(x, y) ? Color{x / 40.0f, y / 24.0f, 0.5f, 1.0f}
                                                          : Color{99.0f, 99.0f, 99.0f, 99.0f};
                              });
    img.region = r;
    for (int filter : {0, 1, 3})
        for (int wrap = 0; wrap < 4; ++wrap) {
            SdTextureParams const params = pixelParams(r, filter, wrap, (wrap + 1) % 4);
            ReferenceSampler const ref(img, params, filter != 0);
            OPtr<SdTextureSampler> const s =
                makeSampler(img, params, makeOPtr<CountingFetcher>(img.fetcher(), r));
            for (double y = -30.0; y < 54.0; y += 3.7)
                for (double x = -70.0; x < 110.0; x += 1.3) {
                    GePoint<double> const p{x, y};
                    ASSERT_TRUE(
                        sameBits(s->sample(p, GeLinearMatrix2<double>()), referenceSample(ref, p)))
                        << "filter " << filter << " wrap " << wrap << " at " << x << "," << y;
                }
        }
    // A fetcher whose tile does not hold the pixel asked is a failed check, not an endless loop
    // (the tile ends before the pixel) nor a read outside the tile (it starts after it).
    struct Wrong {
        int tile;
        GePoint<double> at;
    };
    for (Wrong const w : {Wrong{0, {35.0, 3.0}}, Wrong{1, {3.0, 3.0}}})
        for (int wrap = 0; wrap < 4; ++wrap) {
            IxReadGuard const tile(img.tiles[w.tile]);
            ASSERT_FALSE(tile.getPixelRegion().contains(int(w.at.x), int(w.at.y)));
            auto* wrong = new CountingFetcher(img.fetcher(), r);
            wrong->fixed = &tile;
            OPtr<SdTextureSampler> const s =
                makeSampler(img, pixelParams(r, 0, wrap, wrap), OPtr<PxImageFetcherBase>(wrong));
            EXPECT_THROW(s->sample(w.at, GeLinearMatrix2<double>()), ExBase)
                << "tile " << w.tile << " wrap " << wrap;
        }
}

TEST_F(TextureSampler, ANullFetcherIsRefused) {
    SdTextureParams const params = pixelParams({0, 8, 0, 8}, 1, 0, 0);
    IxPixelFormat const f(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
    std::function<void()> const makers[] = {
        [&] { PxImageTexture::createSampler(f, params, OPtr<PxImageFetcherBase>()); },
        [&] { PxImageTexture::createSampler(f, params, OPtr<IxScanlineTypes::TileFetcher>()); },
        [&] { (void)PxNearestSampler(OPtr<PxImageFetcherBase>(), f, params); },
        [&] { (void)PxMitchellSampler(OPtr<PxImageFetcherBase>(), f, params); },
        [&] {
            (void)PxEWASampler(OPtr<PxImageFetcherBase>(), f, params, PxEWAFilterShape::getGauss());
        },
    };
    for (auto const& make : makers)
        EXPECT_THROW(make(), ExBase);
}

TEST_F(TextureSampler, EveryFilterOfTheTableThroughEachFactoryForm) {
    TestImage const img = randomImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                                      {-10, 50, 5, 40}, 5, 11);
    auto direct = [&](int filter, SdTextureParams const& params) -> OPtr<SdTextureSampler> {
        switch (filter) {
        case SdTextureTypes::FILTER_EWA:
        case SdTextureTypes::FILTER_EWA_GAUSS:
            return makeOPtr<PxEWASampler>(img.fetcher(), img.format, params,
                                          PxEWAFilterShape::getGauss());
        case SdTextureTypes::FILTER_EWA_JINC2:
            return makeOPtr<PxEWASampler>(img.fetcher(), img.format, params,
                                          PxEWAFilterShape::getJinc2());
        case SdTextureTypes::FILTER_EWA_JINC3:
            return makeOPtr<PxEWASampler>(img.fetcher(), img.format, params,
                                          PxEWAFilterShape::getJinc3());
        default:
            return makeSampler(img, params);
        }
    };
    GeLinearMatrix2<double> const footprint(1.5, 0.25, -0.5, 2.0);
    for (int filter = 0; filter < SdTextureTypes::NB_FILTERS; ++filter) {
        SdTextureParams const params = pixelParams(img.region, filter, 2, 3);
        OPtr<SdTextureSampler const> const forms[] = {
            PxImageTexture::createSampler(img.format, params, img.fetcher()),
            PxImageTexture::createSampler(img.format, params,
                                          makeOPtr<IxScanlineTypes::TileListFetcher>(img.tiles))};
        OPtr<SdTextureSampler> const want = direct(filter, params);
        for (auto const& s : forms) {
            ASSERT_TRUE(s);
            SdTextureSampler const &got = *s, &expected = *want;
            EXPECT_TRUE(typeid(got) == typeid(expected)) << filter;
            for (GePoint<double> p : {GePoint<double>{3.25, 7.5}, GePoint<double>{-14.0, 41.7},
                                      GePoint<double>{49.9, 5.1}})
                EXPECT_TRUE(sameBits(s->sample(p, footprint), want->sample(p, footprint)))
                    << "filter " << filter << " at " << p.x << "," << p.y;
        }
    }
    SdTextureParams params = pixelParams(img.region, 1, 0, 0);
    params.filter = SdTextureTypes::NB_FILTERS;
    EXPECT_FALSE(PxImageTexture::createSampler(img.format, params, img.fetcher()));
}

TEST_F(TextureSampler, EveryFilterSamplesAFlatImageFlatThroughATexture) {
    auto const node = colorSource(); // 40 x 30 of (0.25, 0.5, 0.75), opaque
    for (int filter = 0; filter < SdTextureTypes::NB_FILTERS; ++filter)
        for (int wrap = 1; wrap < 4; ++wrap) {
            SdTextureParams const params = pixelParams({0, 40, 0, 30}, filter, wrap, wrap);
            RCShdPtr<PxImageTexture> const texture(new PxImageTexture(
                PxNodePtr<PxImageProtocol const>(node), PxTimeScaleContext(0.0, 0), params));
            Color got[3];
            runAndWait(new FnRequest([&] {
                OPtr<SdTextureSampler const> const s = texture->getSampler();
                GeLinearMatrix2<double> const footprint(3.0, 0.0, 0.0, 2.0);
                int i = 0;
                for (GePoint<double> p : {GePoint<double>{20.0, 15.0}, GePoint<double>{0.2, 29.9},
                                          GePoint<double>{-7.0, 33.0}})
                    got[i++] = s->sample(p, footprint);
            }));
            for (Color const& c : got) {
                EXPECT_NEAR(c.r, 0.25f, 2e-6f) << "filter " << filter << " wrap " << wrap;
                EXPECT_NEAR(c.g, 0.5f, 2e-6f) << "filter " << filter;
                EXPECT_NEAR(c.b, 0.75f, 2e-6f) << "filter " << filter;
                EXPECT_NEAR(c.a, 1.0f, 2e-6f) << "filter " << filter;
            }
        }
}

TEST(MitchellWeights, AreTheCubicOfOneThirdsAndSumToOne) {
    // B = C = 1/3 from its definition, in double.
    auto k = [](double x) {
        double const B = 1.0 / 3.0;
        double const C = 1.0 / 3.0;
        x = std::fabs(x);
        if (x < 1.0)
            return ((12 - 9 * B - 6 * C) * x * x * x + (-18 + 12 * B + 6 * C) * x * x +
                    (6 - 2 * B)) /
                   6.0;
        if (x < 2.0)
            return ((-B - 6 * C) * x * x * x + (6 * B + 30 * C) * x * x + (-12 * B - 48 * C) * x +
                    (8 * B + 24 * C)) /
                   6.0;
        return 0.0;
    };
    for (int i = 0; i <= 1024; ++i) {
        float const t = std::min(i / 1024.0f, std::nextafter(1.0f, 0.0f));
        float w[4];
        PxMitchellSampler::weights(t, w);
        double sum = 0.0;
        for (int j = 0; j < 4; ++j) {
            EXPECT_NEAR(w[j], k(t + 1.0 - j), 1e-6) << "t " << t << " tap " << j;
            sum += w[j];
        }
        ASSERT_NEAR(sum, 1.0, 1e-6) << "t " << t;
    }
}

namespace {
// An image of width x height whose tiles each hold a colour of their place; with half set, only
// the left half of their part of it, the rest being their fill colour.
class TiledImage final : public PxImageProtocol {
public:
    TiledImage(int width, int height, bool half)
        : PxNode(Init{"tiled"}), _width(width), _height(height), _half(half) {}
    PxImageFormat getImageFormat() const override { return imageFormat(); }
    PxRODResult getImageROD(PxTimeStreamContext const&) const override {
        return {pixelizedToNominal({0, _width, 0, _height}, 1.0f, 1.0f), PxValidityInterval::FULL};
    }
    PxImageResult getImageResult(PxImageContext const& c) const override {
        PxValidityInterval vi = PxValidityInterval::FULL;
        GeRectangle<int> r = computeTileRegion(c, vi);
        if (_half)
            r.xmax = r.xmin + r.width() / 2;
        IxTile const tile = allocateImageBuffer(c, kFill, r);
        ipSet(IxWriteGuard(tile), r, colourOf(c.getTile().x, c.getTile().y));
        return {tile, vi};
    }
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }
    static Color colourOf(int tx, int ty) { return {tx / 128.0f, ty / 128.0f, 0.5f, 1.0f}; }
    static inline Color const kFill{0.0f, 0.0f, 1.0f, 0.5f};

private:
    int _width;
    int _height;
    bool _half;
};
} // namespace

TEST_F(TextureSampler, PixelsATileDoesNotHoldReadAsItsFillColour) {
    PxStrongHndl<PxImageProtocol const> const node = makeNode(new TiledImage(600, 40, true));
    int const tile = 1 << PxConfig::getTileSizeExpX();
    Color got[4];
    runAndWait(new FnRequest([&] {
        PxNearestSampler const s(PxNodePtr<PxImageProtocol const>(node), PxTimeScaleContext(0, 0),
                                 node->getImageFormat().getPixelFormat(),
                                 pixelParams({0, 600, 0, 40}, 0, 1, 1));
        int i = 0;
        for (int x : {3, tile / 2 + 3, tile + 3, 599})
            got[i++] = s.sample(GePoint<double>{x + 0.5, 20.5}, GeLinearMatrix2<double>());
    }));
    // The second tile is 600 - tile pixels wide, the last pixel beyond its half.
    Color const want[4] = {TiledImage::colourOf(0, 0), TiledImage::kFill,
                           TiledImage::colourOf(1, 0), TiledImage::kFill};
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(sameBits(got[i], want[i])) << i << ": " << got[i].r << " " << got[i].a;
}

TEST_F(TextureSampler, TilesBeyondTheFetchersTableShareItsSlots) {
    // 65 x 64 tiles: tile (1, 63), the 4,097th, shares the first one's slot, and so on.
    int const tile = 1 << PxConfig::getTileSizeExpX();
    PxStrongHndl<PxImageProtocol const> const node =
        makeNode(new TiledImage(65 * tile, 64 * tile, false));
    struct Probe {
        int tx;
        int ty;
    };
    Probe const probes[] = {{0, 0}, {1, 63}, {0, 0}, {64, 63}, {1, 63}, {0, 0}, {64, 0}};
    std::vector<Color> got;
    runAndWait(new FnRequest([&] {
        PxImageFetcher const f(PxNodePtr<PxImageProtocol const>(node), PxTimeScaleContext(0, 0));
        for (int round = 0; round < 2; ++round) {
            for (Probe const& p : probes)
                got.push_back(
                    IxPixelUtil::getPixelColor(f.getGuard(p.tx * tile + 7, p.ty * tile + 5),
                                               p.tx * tile + 7, p.ty * tile + 5));
            round ? f.releaseTiles() : f.releaseGuard();
        }
    }));
    ASSERT_EQ(got.size(), 2 * std::size(probes));
    for (std::size_t i = 0; i < got.size(); ++i) {
        Probe const& p = probes[i % std::size(probes)];
        EXPECT_TRUE(sameBits(got[i], TiledImage::colourOf(p.tx, p.ty)))
            << "tile " << p.tx << "," << p.ty << " read " << i;
    }
}
