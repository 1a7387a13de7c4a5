#include "AllocationCounting.h"
#include "EngineTestSupport.h"
#include "ExBase.h"
#include "ImageTestGraph.h"
#include "PxSamplers.h"
#include "SamplerTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

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

OPtr<SdTextureSampler> makeSampler(TestImage const& img, SdTextureParams const& params) {
    switch (params.filter) {
    case SdTextureTypes::FILTER_NEAREST:
        return makeOPtr<PxNearestSampler>(img.fetcher(), img.format, params);
    case SdTextureTypes::FILTER_BILINEAR:
        if (img.format.getComps() == IxPixelFormat::RGB)
            return makeOPtr<PxBilinearRGBSampler>(img.fetcher(), img.format, params);
        return makeOPtr<PxBilinearSampler>(img.fetcher(), img.format, params);
    default:
        return makeOPtr<PxMitchellSampler>(img.fetcher(), img.format, params);
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
                        OPtr<SdTextureSampler> const s = makeSampler(img, params);
                        std::uniform_real_distribution<double> px(c.region.xmin - 45.0,
                                                                  c.region.xmax + 45.0);
                        std::uniform_real_distribution<double> py(c.region.ymin - 45.0,
                                                                  c.region.ymax + 45.0);
                        for (int i = 0; i < 60; ++i) {
                            GePoint<double> p{px(rng), py(rng)};
                            if (i % 6 == 0) // exact integers, negative ones included
                                p = {std::floor(p.x) + (filter ? 0.5 : 0.0),
                                     std::floor(p.y) + (filter ? 0.5 : 0.0)};
                            Color const got = s->sample(p, GeLinearMatrix2<double>());
                            Color const want = referenceSample(ref, p);
                            ASSERT_TRUE(sameBits(got, want))
                                << "filter " << filter << " wrap " << wrap << "/" << wrapT
                                << " format " << comp << "x" << depth << " at " << p.x << "," << p.y
                                << ": " << got.r << " " << got.g << " " << got.b << " " << got.a
                                << " vs " << want.r << " " << want.g << " " << want.b << " "
                                << want.a;
                            ++compared;
                        }
                        // A row call reads its positions as the point form does.
                        GePoint<double> const start{px(rng), py(rng)};
                        GeVector2<double> const step{double(int(rng() % 7) - 3) * 0.37,
                                                     double(int(rng() % 5) - 2) * 0.61};
                        Color row[67]; // crosses a chunk of positions
                        s->sampleRow(start, step, 67, GeLinearMatrix2<float>(), row);
                        for (int i = 0; i < 67; ++i)
                            ASSERT_TRUE(
                                sameBits(row[i], referenceSample(ref, SdTextureSampler::rowPosition(
                                                                          start, step, i))))
                                << "row position " << i << " filter " << filter;
                    }
            }
    EXPECT_EQ(compared, 4L * 9 * 3 * 4 * 60);
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
    auto outside = makeSampler(img, pixelParams(r, 0, 4, 4));
    try {
        outside->sample(GePoint<double>{-3.0, 2.0}, GeLinearMatrix2<double>());
        ADD_FAILURE() << "no assertion";
    } catch (ExBase const& e) {
        EXPECT_NE(std::string(e.what()).find(
                      "Source tiles must cover the scanline region in NOOP padding mode."),
                  std::string::npos)
            << e.what();
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

// Counts the block rows the sampler fills: it asks for the region once per row.
class CountingFetcher final : public PxImageFetcherBase {
public:
    explicit CountingFetcher(OPtr<PxImageFetcherBase> inner) : _inner(std::move(inner)) {}
    GeRectangle<int> getImageRegion() const override {
        ++rows;
        return _inner->getImageRegion();
    }
    IxReadGuard const& getGuard(int x, int y) const override { return _inner->getGuard(x, y); }
    void releaseTiles() const override { _inner->releaseTiles(); }
    void releaseGuard() const override { _inner->releaseGuard(); }
    void registerGuardProxy(IxGuardProxy const& p) const override { _inner->registerGuardProxy(p); }
    void reduceVI(PxValidityInterval& vi) const override { _inner->reduceVI(vi); }
    mutable long rows = 0;

private:
    OPtr<PxImageFetcherBase> _inner;
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
    ColorSourceSpec source; // 40 x 30 pixels
    source.colorVI = PxValidityInterval(0.0, 2.0);
    auto const node = colorSource(source);
    GeRectangle<int> const region{0, 40, 0, 30};
    Color inside;
    Color outside;
    PxValidityInterval vi = PxValidityInterval::FULL;
    runAndWait(new FnRequest([&] {
        PxBilinearSampler const s(
            PxNodePtr<PxImageProtocol const>(node), PxTimeScaleContext(0.5, 0),
            node->getImageFormat().getPixelFormat(), pixelParams(region, 1, 0, 0));
        EXPECT_EQ(s.getImageRegion(), region);
        inside = s.sample(GePoint<double>{0.5, 29.5}, GeLinearMatrix2<double>());
        outside = s.sample(GePoint<double>{45.0, 0.0}, GeLinearMatrix2<double>());
        s.reduceVI(vi);
        s.releaseGuard(); // tiles stay, guards reopen on the next miss
        s.releaseTiles();
    }));
    EXPECT_NEAR(inside.r, 0.25f, 1e-5f);
    EXPECT_NEAR(inside.b, 0.75f, 1e-5f);
    EXPECT_NEAR(inside.a, 1.0f, 1e-5f);
    EXPECT_TRUE(sameBits(outside, Color{}));
    EXPECT_EQ(vi, PxValidityInterval(0.0, 2.0));
}
