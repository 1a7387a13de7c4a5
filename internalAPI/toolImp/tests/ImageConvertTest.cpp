#include "../../procImp/tests/ImageTestGraph.h"

#include "ExBase.h"
#include "IxConvertUtil.h"
#include "IxImageOps.h"
#include "PiImageConvertNode.h"
#include "PxEx.h"
#include "PxImageRegionIter.h"

#include <Imath/half.h>

#include <cmath>
#include <cstring>
#include <mutex>
#include <set>

using namespace VnTest;
using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;

Color const kFill{0.1f, 0.2f, 0.3f, 0.4f};

// A width x height image of a format whose pixels come from a function of (x, y). It records
// the tiles it is asked for, and leaves the tiles of some columns empty, showing only its fill.
class PatternSource final : public PxImageProtocol {
public:
    using Fn = Color (*)(int, int);
    PatternSource(PxImageFormat const& format, int width, int height, Fn fn,
                  std::set<int> emptyColumns = {}, Color fill = kFill)
        : PxNode(Init{"pattern"}), _format(format), _width(width), _height(height), _fn(fn),
          _empty(std::move(emptyColumns)), _fill(fill) {}
    PxImageFormat getImageFormat() const override { return _format; }
    PxRODResult getImageROD(PxTimeStreamContext const&) const override {
        return {pixelizedToNominal({0, _width, 0, _height}, _format.getAspectRatio(), 1.0f),
                PxValidityInterval::FULL};
    }
    PxImageResult getImageResult(PxImageContext const& c) const override {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            if (!c.isOutside())
                _asked.insert(c.getTile().x);
        }
        PxValidityInterval vi = PxValidityInterval::FULL;
        GeRectangle<int> region = computeTileRegion(c, vi);
        if (_empty.count(c.getTile().x))
            region = {};
        IxTile const tile = allocateImageBuffer(c, _fill, region);
        IxWriteGuard const w(tile);
        IpPixels const p = ipPixelsOf(w);
        for (int y = region.ymin; y < region.ymax; ++y)
            for (int x = region.xmin; x < region.xmax; ++x) {
                Color const v = _fn(x, y);
                IxConvertUtil::writeTo(p.address(x, y), &v, 1, p.format);
            }
        return {tile, vi};
    }
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }

    std::set<int> takeAsked() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return std::exchange(_asked, {});
    }

private:
    PxImageFormat _format;
    int _width;
    int _height;
    Fn _fn;
    std::set<int> _empty;
    Color _fill;
    mutable std::mutex _mutex;
    mutable std::set<int> _asked;
};

Color every8BitValue(int x, int y) {
    auto v = [&](int c) {
        return static_cast<float>((x + 7 * y + 61 * c) % 256) / 255.0f;
    };
    return {v(0), v(1), v(2), v(3)};
}

Color wideFloats(int x, int y) {
    // The first pixel lies beyond the half range; the others over the whole range, with
    // subnormals and signs.
    if (x == 0 && y == 0)
        return {70000.0f, -1e9f, HUGE_VALF, std::nanf("")};
    auto v = [&](int c) {
        int const i = x * 4 + c + 97 * y;
        float const mag = std::ldexp(1.0f + static_cast<float>(i % 1000) / 1000.0f, i % 40 - 24);
        return (i % 3 == 0 ? -mag : mag);
    };
    return {v(0), v(1), v(2), v(3)};
}

Color constantColor(int, int) {
    return {0.25f, 0.5f, 0.75f, 1.0f};
}

Color wave(int x, int y) {
    float const v = std::sin(0.7f * static_cast<float>(x) + static_cast<float>(y));
    return {0.5f + 0.4f * v, 0.5f - 0.3f * v, 0.2f * static_cast<float>(x % 5), 1.0f - 0.1f * v};
}

PxImageFormat fmt(int depth, Rational aspect = Rational(1), Rational rate = Rational(25),
                  int comps = IxPixelFormat::RGBA) {
    return PxImageFormat(IxPixelFormat(comps, depth, aspect), rate);
}

PxStrongHndl<PxImageFormatNode> formatNode(PxImageFormat const& f) {
    return makeNode(new PxImageFormatNode(PxNode::Init{"target"}, f));
}

PxStrongHndl<PiImageInputConvertNode> convert(PxStrongHndl<PxImageProtocol const> const& child,
                                              PxStrongHndl<PxImageFormatNode> const& target) {
    return makeNode(new PiImageInputConvertNode(PxNode::Init{"input"}, child,
                                                PxNodePtr<PxImageFormatProtocol const>(target)));
}

PxImageContext tile(int x, int y = 0) {
    return PxImageContext(0.0, {x, y}, 0, 0);
}

bool sameBytes(IxTile const& a, IxTile const& b) {
    if (!(a.getPixelRegion() == b.getPixelRegion()) || !(a.getPixelFormat() == b.getPixelFormat()))
        return false;
    IxReadGuard const ga(a), gb(b);
    GeRectangle<int> const& r = a.getPixelRegion();
    std::size_t const bytes =
        static_cast<std::size_t>(r.width()) * a.getPixelFormat().getPixelSize();
    for (int y = r.ymin; y < r.ymax; ++y)
        if (std::memcmp(ipPixelsOf(ga).address(r.xmin, y), ipPixelsOf(gb).address(r.xmin, y),
                        bytes) != 0)
            return false;
    return true;
}

class ImageConvertTest : public EngineTest {};

TEST(PxImageRegionIter, PartsCoverTheRegionOutsideTheExcludedOne) {
    struct Case {
        GeRectangle<int> region, excluded;
        int parts;
    };
    for (Case const& c :
         {Case{{0, 10, 0, 10}, {3, 6, 2, 8}, 4}, Case{{0, 10, 0, 10}, {0, 10, 0, 4}, 1},
          Case{{0, 10, 0, 10}, {20, 30, 0, 10}, 1}, Case{{0, 10, 0, 10}, {-5, 15, -5, 15}, 0},
          Case{{0, 10, 0, 10}, {5, 15, 0, 10}, 1}}) {
        std::vector<int> hits(100, 0);
        int parts = 0;
        for (PxImageRegionIter it(c.region, c.excluded); !it.isDone(); ++it, ++parts)
            for (int y = (*it).ymin; y < (*it).ymax; ++y)
                for (int x = (*it).xmin; x < (*it).xmax; ++x)
                    ++hits[static_cast<std::size_t>(y * 10 + x)];
        EXPECT_EQ(parts, c.parts);
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 10; ++x)
                EXPECT_EQ(hits[static_cast<std::size_t>(y * 10 + x)],
                          c.excluded.contains(x, y) ? 0 : 1)
                    << x << "," << y;
    }
}

TEST_F(ImageConvertTest, ConverterKindFollowsTheFormatsNotTheRate) {
    PxStrongHndl<PxImageProtocol const> const child = colorSource();
    struct Case {
        PxImageFormat from, to;
        char const* kind;
    };
    std::vector<Case> const cases = {
        {fmt(IxPixelFormat::FLOAT32), fmt(IxPixelFormat::FLOAT32, Rational(1), Rational(30)),
         "NoOpConverter"},
        {fmt(IxPixelFormat::FLOAT32), fmt(IxPixelFormat::UINT8), "FormatConverter"},
        {fmt(IxPixelFormat::FLOAT32),
         PxImageFormat(IxPixelFormat(IxPixelFormat::RGB, IxPixelFormat::FLOAT32), Rational(25)),
         "FormatConverter"},
        {fmt(IxPixelFormat::FLOAT32), fmt(IxPixelFormat::FLOAT32, Rational(2)), "AspectConverter"},
        {fmt(IxPixelFormat::UINT8, Rational(4, 3)), fmt(IxPixelFormat::FLOAT16), "AspectConverter"},
    };
    std::vector<std::string> kinds;
    runAndWait(new FnRequest([&] {
        for (Case const& c : cases) {
            PxNodePtr<PiImageConvertNode> const n =
                PiImageConvertNode::create(PxNodePtr<PxImageProtocol const>(child), c.from, c.to);
            kinds.push_back(n->getTypeName());
            EXPECT_EQ(n->getImageFormat(), c.to);
        }
    }));
    ASSERT_EQ(kinds.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(kinds[i], cases[i].kind) << i;
    // Made only on the workers.
    EXPECT_THROW(PiImageConvertNode::create(PxNodePtr<PxImageProtocol const>(child),
                                            fmt(IxPixelFormat::FLOAT32), fmt(IxPixelFormat::UINT8)),
                 ExAssertionFailed);
}

TEST_F(ImageConvertTest, EightBitsThroughFloatComeBackExactly) {
    PxStrongHndl<PxImageProtocol const> const source =
        makeNode(new PatternSource(fmt(IxPixelFormat::UINT8), 300, 12, every8BitValue));
    auto const toFloat = convert(source, formatNode(fmt(IxPixelFormat::FLOAT32)));
    auto const back = convert(toFloat, formatNode(fmt(IxPixelFormat::UINT8)));
    EXPECT_STREQ(toFloat->getConverter()->getTypeName(), "FormatConverter");
    PxImageResult const original = tileOf(source, tile(0));
    PxImageResult const viaFloat = tileOf(toFloat, tile(0));
    PxImageResult const roundTrip = tileOf(back, tile(0));
    EXPECT_EQ(viaFloat.getTile().getPixelFormat().getDepth(), IxPixelFormat::FLOAT32);
    EXPECT_EQ(pixelAt(viaFloat.getTile(), 5, 3), every8BitValue(5, 3));
    EXPECT_EQ(viaFloat.getFillColor(), kFill);
    EXPECT_TRUE(sameBytes(original.getTile(), roundTrip.getTile()));
}

TEST_F(ImageConvertTest, AlphaAndRgbTilesKeepWhatTheirLayoutHolds) {
    // Alpha keeps a and reads as (0, 0, 0, a); RGB keeps r, g, b and reads with alpha 1. The
    // pattern's values are whole steps of 1 / 255, exact at both depths.
    PxStrongHndl<PxImageProtocol const> const source =
        makeNode(new PatternSource(fmt(IxPixelFormat::FLOAT32), 40, 6, every8BitValue));
    for (int comps : {IxPixelFormat::ALPHA, IxPixelFormat::RGB})
        for (int depth : {IxPixelFormat::UINT8, IxPixelFormat::FLOAT32}) {
            auto const narrow =
                convert(source, formatNode(fmt(depth, Rational(1), Rational(25), comps)));
            EXPECT_STREQ(narrow->getConverter()->getTypeName(), "FormatConverter");
            auto const wide = convert(narrow, formatNode(fmt(IxPixelFormat::FLOAT32)));
            IxTile const t = tileOf(narrow, tile(0)).getTile();
            IxTile const back = tileOf(wide, tile(0)).getTile();
            EXPECT_EQ(t.getPixelFormat().getComps(), comps);
            for (int y = 0; y < 6; ++y)
                for (int x = 0; x < 40; ++x) {
                    Color const c = every8BitValue(x, y);
                    Color const want = comps == IxPixelFormat::ALPHA ? Color{0, 0, 0, c.a}
                                                                     : Color{c.r, c.g, c.b, 1};
                    Color got;
                    IxConvertUtil::readFrom(&got, ipPixelsOf(IxReadGuard(t)).address(x, y), 1,
                                            ImPixelFormat(comps, depth));
                    ASSERT_EQ(got, want) << comps << "x" << depth << " at " << x << "," << y;
                    ASSERT_EQ(pixelAt(back, x, y), want) << comps << "x" << depth;
                }
        }
}

TEST_F(ImageConvertTest, HalfFloatsMatchImath) {
    PxStrongHndl<PxImageProtocol const> const source =
        makeNode(new PatternSource(fmt(IxPixelFormat::FLOAT32), 256, 8, wideFloats));
    auto const half = convert(source, formatNode(fmt(IxPixelFormat::FLOAT16)));
    IxTile const t = tileOf(half, tile(0)).getTile();
    IxReadGuard const g(t);
    IpPixels const p = ipPixelsOf(g);
    int mismatches = 0;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 256; ++x) {
            Color const v = wideFloats(x, y);
            float const want[4] = {v.r, v.g, v.b, v.a};
            std::uint16_t got[4];
            std::memcpy(got, p.address(x, y), sizeof got);
            if (x == 0 && y == 0) {
                // Finite values saturate, infinities and NaN stay.
                EXPECT_EQ(got[0], 0x7bff);
                EXPECT_EQ(got[1], 0xfbff);
                EXPECT_EQ(got[2], 0x7c00);
                Imath::half nan;
                nan.setBits(got[3]);
                EXPECT_TRUE(nan.isNan());
                continue;
            }
            for (int c = 0; c < 4; ++c)
                mismatches += got[c] != Imath::half(want[c]).bits();
        }
    EXPECT_EQ(mismatches, 0);
}

TEST_F(ImageConvertTest, AspectChangeIsTheNormalizedLanczosSumOfTheSource) {
    // Destination pixel x is centred on (x + 0.5) A pixels of the source, A the ratio of the
    // aspects; the Lanczos window sinc(u) sinc(u / 3) is stretched by A when shrinking, its
    // weights normalized; outside the image the source's fill colour. Computed in double from
    // that definition: a half-pixel phase error or a wrong stretch moves a wave by far more
    // than the tolerance, and a constant image must stay constant.
    auto lanczos = [](double u) {
        auto sinc = [](double v) {
            return v == 0.0 ? 1.0 : std::sin(M_PI * v) / (M_PI * v);
        };
        return std::fabs(u) < 3.0 ? sinc(u) * sinc(u / 3.0) : 0.0;
    };
    struct Case {
        PatternSource::Fn fn;
        Color fill;
        double tolerance;
    };
    Case const cases[] = {{wave, kFill, 2e-5}, {constantColor, constantColor(0, 0), 1e-5}};
    for (Case const& c : cases)
        for (Rational const aspect : {Rational(2), Rational(1, 2), Rational(4, 3)}) {
            PxStrongHndl<PxImageProtocol const> const source =
                makeNode(new PatternSource(fmt(IxPixelFormat::FLOAT32), 301, 6, c.fn, {}, c.fill));
            auto const wide = convert(source, formatNode(fmt(IxPixelFormat::FLOAT32, aspect)));
            EXPECT_STREQ(wide->getConverter()->getTypeName(), "AspectConverter");
            IxTile const t = tileOf(wide, tile(0)).getTile();
            double const a = aspect.toDouble();
            int const width = std::min(512, static_cast<int>(std::ceil(301.0 / a)));
            EXPECT_EQ(t.getPixelRegion(), GeRectangle<int>(0, width, 0, 6)) << aspect.toString();
            double const stretch = std::max(1.0, a);
            double worst = 0.0;
            for (int y = 0; y < 6; ++y)
                for (int x = 0; x < width; ++x) {
                    double const centre = (x + 0.5) * a;
                    double want[4] = {0, 0, 0, 0};
                    double sum = 0.0;
                    for (int k = static_cast<int>(centre - 3 * stretch) - 1;
                         k <= static_cast<int>(centre + 3 * stretch) + 1; ++k) {
                        double const w = lanczos((k + 0.5 - centre) / stretch);
                        Color const p = k >= 0 && k < 301 ? c.fn(k, y) : c.fill;
                        for (int i = 0; i < 4; ++i)
                            want[i] += w * (&p.r)[i];
                        sum += w;
                    }
                    Color const got = pixelAt(t, x, y);
                    for (int i = 0; i < 4; ++i)
                        worst = std::max(worst, std::fabs((&got.r)[i] - want[i] / sum));
                }
            EXPECT_LT(worst, c.tolerance) << aspect.toString();
        }
}

TEST_F(ImageConvertTest, AspectChangeStopsBetweenRowsWhenCancelled) {
    IxTile const src(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32), {0, 64, 0, 64},
                     kFill);
    ipSet(IxWriteGuard(src), src.getPixelRegion(), kFill);
    IxTile const dst(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32, Rational(2)),
                     {0, 32, 0, 64}, {});
    Lanczos3Filter const filter;
    bool raised = false;
    PxRequest* self = nullptr;
    auto* r = new FnRequest([&] {
        engine().cancelRequest(self);
        try {
            ipAspectChange(IxWriteGuard(dst), {IxReadGuard(src)}, filter, dst.getPixelRegion());
        } catch (PxEx::ExRequestCancelled const&) {
            raised = true;
            throw;
        }
    });
    PxRequestPtr<FnRequest> const p(r);
    self = r;
    engine().executeRequest(r, false);
    EXPECT_THROW(engine().waitRequest(r), PxEx::ExRequestCancelled);
    EXPECT_TRUE(raised);
}

TEST_F(ImageConvertTest, AspectChangeFillsWhatTheSourceDoesNotCover) {
    // Two source tiles; the second has no pixels, only the fill colour. Enlarged twice, the
    // destination's third tile comes wholly from it, and its second tile half.
    auto* raw = new PatternSource(fmt(IxPixelFormat::FLOAT32), 1024, 4, constantColor, {1});
    PxStrongHndl<PxImageProtocol const> const source = makeNode(raw);
    auto const wide = convert(source, formatNode(fmt(IxPixelFormat::FLOAT32, Rational(1, 2))));
    IxTile const second = tileOf(wide, tile(1)).getTile();
    IxTile const third = tileOf(wide, tile(2)).getTile();
    EXPECT_EQ(third.getPixelRegion(), GeRectangle<int>(1024, 1536, 0, 4));
    for (int x : {1024, 1100, 1535})
        EXPECT_EQ(pixelAt(third, x, 2), kFill) << x;
    EXPECT_NEAR(pixelAt(second, 600, 1).r, 0.25f, 1e-6f);
    EXPECT_NEAR(pixelAt(second, 1010, 1).b, 0.75f, 1e-6f);
    // Where the kernel straddles the edge, the mix is of the colour and the fill, never black.
    Color const edge = pixelAt(second, 1023, 1);
    EXPECT_GT(edge.r, 0.09f);
    EXPECT_LT(edge.r, 0.26f);
    // Outside the image: no pixels, the child's fill colour.
    PxImageResult const out = tileOf(wide, tile(9));
    EXPECT_TRUE(out.getPixelRegion().isEmpty());
    EXPECT_EQ(out.getFillColor(), kFill);
}

TEST_F(ImageConvertTest, AspectChangeAsksOnlyForTheSpanAndTheFilterSupport) {
    // Shrinking by 2 from four source tiles: the first destination tile needs the first two
    // source tiles and 6 pixels of support, which reach into the third, not the fourth.
    auto* shrinkSource = new PatternSource(fmt(IxPixelFormat::FLOAT32), 2048, 4, constantColor);
    PxStrongHndl<PxImageProtocol const> const s = makeNode(shrinkSource);
    auto const narrow = convert(s, formatNode(fmt(IxPixelFormat::FLOAT32, Rational(2))));
    tileOf(narrow, tile(0));
    EXPECT_EQ(shrinkSource->takeAsked(), (std::set<int>{0, 1, 2}));
    tileOf(narrow, tile(1));
    EXPECT_EQ(shrinkSource->takeAsked(), (std::set<int>{1, 2, 3}));

    // Enlarging by 2 from two source tiles: each destination tile at an end needs one.
    auto* growSource = new PatternSource(fmt(IxPixelFormat::FLOAT32), 1024, 4, constantColor);
    PxStrongHndl<PxImageProtocol const> const g = makeNode(growSource);
    auto const wide = convert(g, formatNode(fmt(IxPixelFormat::FLOAT32, Rational(1, 2))));
    tileOf(wide, tile(0));
    EXPECT_EQ(growSource->takeAsked(), std::set<int>{0});
    tileOf(wide, tile(3));
    EXPECT_EQ(growSource->takeAsked(), std::set<int>{1});
}

TEST_F(ImageConvertTest, InputFollowsTheTargetFormat) {
    PxStrongHndl<PxImageProtocol const> const source = colorSource();
    PxStrongHndl<PxImageFormatNode> const target = formatNode(fmt(IxPixelFormat::UINT8));
    auto const input = convert(source, target);
    EXPECT_EQ(tileOf(input, tile(0)).getTile().getPixelFormat().getDepth(), IxPixelFormat::UINT8);
    PxMutationRequest::submit(new PxImageFormatSetRequest(PxUPtr<PxImageFormatNode>(target),
                                                          fmt(IxPixelFormat::FLOAT32)));
    auto const q = submitted(new PxImageFormatRequest(PxUPtr<PxImageFormatProtocol const>(input)));
    EXPECT_EQ(q->getImageFormat(), fmt(IxPixelFormat::FLOAT32));
    EXPECT_STREQ(input->getConverter()->getTypeName(), "NoOpConverter");
    EXPECT_EQ(tileOf(input, tile(0)).getTile().getPixelFormat().getDepth(), IxPixelFormat::FLOAT32);
}

TEST_F(ImageConvertTest, InputFollowsTheChildFormat) {
    PxStrongHndl<PxImageFormatNode> const childFormat = formatNode(fmt(IxPixelFormat::FLOAT32));
    PxStrongHndl<PxImageProtocol const> const child = makeNode(new PxColorSourceNode(
        PxNode::Init{"color"}, childFormat, animValue(40), animValue(30),
        animValue(CoRgbColorTyped<float>{}), animValue(0.0),
        animValue(CoRgbColorTyped<float>{0.25f, 0.5f, 0.75f}), animValue(1.0)));
    auto const input = convert(child, formatNode(fmt(IxPixelFormat::UINT8)));
    EXPECT_STREQ(input->getConverter()->getTypeName(), "FormatConverter");
    // The child turns 8-bit: nothing is left to convert.
    PxMutationRequest::submit(new PxImageFormatSetRequest(PxUPtr<PxImageFormatNode>(childFormat),
                                                          fmt(IxPixelFormat::UINT8)));
    PxImageResult const r = tileOf(input, tile(0));
    EXPECT_STREQ(input->getConverter()->getTypeName(), "NoOpConverter");
    EXPECT_EQ(input->getConverter()->getSourceFormat(), fmt(IxPixelFormat::UINT8));
    EXPECT_EQ(r.getTile().getPixelFormat().getDepth(), IxPixelFormat::UINT8);
    // Its aspect changes: the width is resampled.
    PxMutationRequest::submit(new PxImageFormatSetRequest(PxUPtr<PxImageFormatNode>(childFormat),
                                                          fmt(IxPixelFormat::UINT8, Rational(2))));
    EXPECT_EQ(tileOf(input, tile(0)).getPixelRegion(), GeRectangle<int>(0, 80, 0, 30));
    EXPECT_STREQ(input->getConverter()->getTypeName(), "AspectConverter");
}

} // namespace
