#include "../../procImp/tests/ImageTestGraph.h"

#include "IxConvertUtil.h"
#include "PiPixelLoop.h"
#include "PxEx.h"

#include <atomic>
#include <tuple>
#include <utility>
#include <vector>

using namespace VnTest;
using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
using Line = PiPixelLoop::Scanline;

IxPixelFormat const kRGBA32(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
IxPixelFormat const kRGB8(IxPixelFormat::RGB, IxPixelFormat::UINT8);

IxTile solid(IxPixelFormat const& f, GeRectangle<int> const& region, Color c, Color fill) {
    IxTile t(f, region, fill);
    ipSet(IxWriteGuard(t), region, c);
    return t;
}

// Adds the sources weighted 1, 2, 4, ..., so that each one's part shows, and records the rows
// it saw.
template <class Base, class... Lines>
class WeightedSum final : public Base {
public:
    using Base::Base;
    void processScanline(Line& dst, Lines const&... sources) override {
        rows.push_back(this->getGlobalScanlineIndex());
        for (int x = dst.getX0(); x < dst.getX1(); ++x)
            dst[x] = weigh({sources[x]...});
    }
    Color processFillColor(PiPixelLoopDetail::FillColor<Lines> const&... fills) override {
        ++fillCalls;
        return weigh({fills...});
    }
    static Color weigh(std::vector<Color> const& c) {
        Color sum{};
        for (std::size_t k = 0; k < c.size(); ++k) {
            float const w = static_cast<float>(1 << k);
            sum = {sum.r + w * c[k].r, sum.g + w * c[k].g, sum.b + w * c[k].b, sum.a + w * c[k].a};
        }
        return sum;
    }
    std::vector<int> rows;
    int fillCalls = 0;
};

// Source k of a loop: its own columns and rows, colour and fill; the second is 8-bit RGB.
struct Source {
    IxTile tile;
    Color inside; // as read
    Color fill;
    Color at(int x, int y) const { return tile.getPixelRegion().contains(x, y) ? inside : fill; }
};

Source source(int k) {
    GeRectangle<int> const region(-2 + 2 * k, 3 + 2 * k, 10 + k % 3, 14 + k);
    Color const fill{0.0f, 0.0f, 0.5f * k, 0.125f * (k + 1)};
    if (k == 1) // wider than the result: its rows are whole, but it starts a row late
        return {solid(kRGB8, {-4, 12, region.ymin, region.ymax}, {0, 1, 0, 0.3f}, fill),
                {0, 1, 0, 1},
                fill};
    Color const c{float(k + 1), 0.0f, 0.25f, float(k % 2)};
    return {solid(kRGBA32, region, c, fill), c, fill};
}

// The loop of N sources.
template <std::size_t N>
using LoopOf = std::tuple_element_t<
    N - 1, std::tuple<WeightedSum<PiPixelLoopOneSource, Line>,
                      WeightedSum<PiPixelLoopTwoSources, Line, Line>,
                      WeightedSum<PiPixelLoopThreeSources, Line, Line, Line>,
                      WeightedSum<PiPixelLoopFourSources, Line, Line, Line, Line>,
                      WeightedSum<PiPixelLoopFiveSources, Line, Line, Line, Line, Line>>>;

template <class Loop, std::size_t... I>
void runLoop(Loop& loop, std::vector<Source> const& src, std::index_sequence<I...>) {
    loop.process(IxReadGuard(src[I].tile)...);
}

template <std::size_t N>
void checkLoop(GeRectangle<int> const& region) {
    std::vector<Source> src;
    for (int k = 0; k < int(N); ++k)
        src.push_back(source(k));
    IxTile const result(kRGBA32, region, {});
    IxWriteGuard guard(result);
    using Loop = LoopOf<N>;
    Loop loop(guard, PiImageModifierTypes::AFFECT_RGB);
    EXPECT_EQ(loop.affects(), PiImageModifierTypes::AFFECT_RGB);
    runLoop(loop, src, std::make_index_sequence<N>());
    std::vector<int> rows;
    for (int y = region.ymin; y < region.ymax; ++y)
        rows.push_back(y); // absolute rows
    EXPECT_EQ(loop.rows, rows) << N;
    EXPECT_EQ(loop.fillCalls, 1) << N;
    std::vector<Color> fills;
    for (Source const& s : src)
        fills.push_back(s.fill);
    EXPECT_EQ(guard.getTile().getFillColor(), Loop::weigh(fills)) << N;
    for (int y = region.ymin; y < region.ymax; ++y)
        for (int x = region.xmin; x < region.xmax; ++x) {
            std::vector<Color> px;
            for (Source const& s : src)
                px.push_back(s.at(x, y));
            ASSERT_EQ(*guard.getPixel<Color>(x, y), Loop::weigh(px))
                << N << " sources at " << x << "," << y;
        }
}

} // namespace

using PixelLoops = EngineTest;

TEST_F(PixelLoops, EachSourceReadsItsPixelsAndItsFillColourOutsideThem) {
    // The result covers rows 10-13 and columns -2..9; each source another part. An empty
    // result still gets its fill colour.
    for (GeRectangle<int> const& region : {GeRectangle<int>(-2, 10, 10, 14), GeRectangle<int>()}) {
        checkLoop<1>(region);
        checkLoop<2>(region);
        checkLoop<3>(region);
        checkLoop<4>(region);
        checkLoop<5>(region);
    }
}

TEST_F(PixelLoops, ResultsReadAndWrittenInPlaceMatchTheCopies) {
    // Each pixel takes its left neighbour's value, so a result written over its source would
    // smear the first column across the row if the source were read where it is written.
    struct ShiftRight final : PiPixelLoopOneSource {
        using PiPixelLoopOneSource::PiPixelLoopOneSource;
        void processScanline(Line& dst, Line const& s) override {
            for (int x = dst.getX0(); x < dst.getX1(); ++x)
                dst[x] = s[x > dst.getX0() ? x - 1 : x];
        }
        Color processFillColor(Color const& f) override { return f; }
    };
    GeRectangle<int> const whole(0, 12, 0, 6);
    auto value = [](int x, int y) {
        return float(x + 16 * y) / 255.0f;
    };
    IxPixelFormat const rgba8(IxPixelFormat::RGBA, IxPixelFormat::UINT8);
    auto makeSource = [&](IxPixelFormat const& f) {
        IxTile const t(f, whole, {});
        IxWriteGuard w(t);
        for (int y = whole.ymin; y < whole.ymax; ++y)
            for (int x = whole.xmin; x < whole.xmax; ++x) {
                Color const c{value(x, y), 0.0f, 1.0f, value(x, y)};
                IxConvertUtil::writeTo(w.getAddress(x, y), &c, 1, ImPixelFormat(4, f.getDepth()));
            }
        return t;
    };
    struct Case {
        char const* name;
        IxPixelFormat source;
        IxPixelFormat format;
        GeRectangle<int> region;
        bool overSource;
    };
    for (Case const& c : {Case{"float inside", kRGBA32, kRGBA32, {2, 10, 1, 5}, false},
                          Case{"8-bit inside", kRGBA32, rgba8, {2, 10, 1, 5}, false},
                          Case{"from 8-bit", rgba8, kRGBA32, {2, 10, 1, 5}, false},
                          Case{"over its source", kRGBA32, kRGBA32, whole, true}}) {
        IxTile const src = makeSource(c.source);
        IxTile const result = c.overSource ? src : IxTile(c.format, c.region, {});
        // The source as it was, since the last case writes over it.
        std::vector<float> before;
        for (int y = c.region.ymin; y < c.region.ymax; ++y)
            for (int x = c.region.xmin; x < c.region.xmax; ++x)
                before.push_back(value(x, y));
        IxWriteGuard guard(result);
        ShiftRight loop(guard, PiImageModifierTypes::AFFECT_RGBA);
        loop.process(IxReadGuard(src));
        IxReadGuard const out(result);
        std::size_t k = 0;
        for (int y = c.region.ymin; y < c.region.ymax; ++y)
            for (int x = c.region.xmin; x < c.region.xmax; ++x, ++k) {
                float const want = before[x > c.region.xmin ? k - 1 : k];
                Color got;
                IxConvertUtil::readFrom(&got, out.getAddress(x, y), 1,
                                        ImPixelFormat(4, c.format.getDepth()));
                ASSERT_EQ(got, (Color{want, 0.0f, 1.0f, want}))
                    << c.name << " at " << x << "," << y;
            }
    }
}

TEST_F(PixelLoops, GeneratorWritesEveryRowInTheTilesFormat) {
    IxTile const result(kRGB8, {3, 7, -4, -1}, {0.5f, 0.5f, 0.5f, 0.5f});
    IxWriteGuard guard(result);
    struct Rows final : PiPixelGeneratorLoop {
        using PiPixelGeneratorLoop::PiPixelGeneratorLoop;
        void processScanline(Line& dst) override {
            float const v = float(-getGlobalScanlineIndex()) / 4.0f;
            for (int x = dst.getX0(); x < dst.getX1(); ++x)
                dst[x] = {v, float(x) / 8.0f, 0.0f, 1.0f};
        }
    } loop(guard);
    loop.process();
    EXPECT_EQ(guard.getTile().getFillColor(), (Color{0.5f, 0.5f, 0.5f, 0.5f}));
    // Red 1, 0.75, 0.5 on rows -4..-2 and green 3/8 .. 6/8 across, rounded to 8 bits by hand.
    int const red[] = {255, 191, 128};
    int const green[] = {96, 128, 159, 191};
    for (int y = -4; y < -1; ++y)
        for (int x = 3; x < 7; ++x) {
            std::uint8_t const* p = guard.getPixel<std::uint8_t>(x, y);
            EXPECT_EQ(p[0], red[y + 4]) << x << "," << y;
            EXPECT_EQ(p[1], green[x - 3]) << x << "," << y;
            EXPECT_EQ(p[2], 0) << x << "," << y;
        }
}

namespace {
// A node whose tile is the sum of one source through a loop that cancels its own request after
// the given row.
std::atomic<int> s_rowsDone{0};

class CancellingNode final : public PxImageNode {
public:
    CancellingNode(PxStrongHndl<PxImageProtocol const> const& src, int cancelAfter)
        : PxNode(Init{"cancelling"}), PxImageNode(Init{"cancelling"}, src),
          _cancelAfter(cancelAfter) {}
    PxImageResult getImageResult(PxImageContext const& c) const override {
        PxImageResult const src = getPrimary()->getImageResult(c);
        IxTile const tile = allocateImageBuffer(c, {}, src.getPixelRegion());
        IxWriteGuard guard(tile);
        struct Copy final : PiPixelLoopOneSource {
            Copy(IxWriteGuard& g, int after)
                : PiPixelLoopOneSource(g, PiImageModifierTypes::AFFECT_RGBA), _after(after) {}
            void processScanline(Line& dst, Line const& s) override {
                for (int x = dst.getX0(); x < dst.getX1(); ++x)
                    dst[x] = s[x];
                s_rowsDone.fetch_add(1);
                if (getGlobalScanlineIndex() == _after)
                    PxRequestMgr::getInstance().cancelRequest(request);
            }
            Color processFillColor(Color const& f) override { return f; }
            int _after;
        } loop(guard, _cancelAfter);
        loop.process(src.getTileGuard());
        return {guard.getTile(), src.getValidityInterval()};
    }
    int _cancelAfter;
    static inline PxRequest* request = nullptr;
};
} // namespace

TEST_F(PixelLoops, CancellingBetweenRowsRaisesAtTheWaiterAndReturnsNothing) {
    ColorSourceDesc source;
    source.width = 8;
    source.height = 20;
    PxStrongHndl<PxImageProtocol const> node = makeNode(new CancellingNode(colorSource(source), 4));
    s_rowsDone = 0;
    auto* r = new PxImageTileRequest(PxUPtr<PxImageProtocol const>(node),
                                     PxImageContext(0.0, {0, 0}, 0, 0));
    PxRequestPtr<PxImageTileRequest> p(r);
    CancellingNode::request = r;
    engine().executeRequest(r, false);
    EXPECT_THROW(r->getResult(), PxEx::ExRequestCancelled);
    EXPECT_EQ(s_rowsDone.load(), 5); // rows 0 to 4, then the check before row 5 stops it
}
