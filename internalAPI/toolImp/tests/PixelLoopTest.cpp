#include "../../procImp/tests/ImageTestGraph.h"

#include "PiPixelLoop.h"
#include "PxEx.h"

#include <atomic>
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

// Adds the sources, and records the rows it saw.
class Sum3 final : public PiPixelLoopThreeSources {
public:
    using PiPixelLoopThreeSources::PiPixelLoopThreeSources;
    void processScanline(Line& dst, Line const& a, Line const& b, Line const& c) override {
        rows.push_back(getGlobalScanlineIndex());
        for (int x = dst.getX0(); x < dst.getX1(); ++x)
            dst[x] = add(add(a[x], b[x]), c[x]);
    }
    Color processFillColor(Color const& a, Color const& b, Color const& c) override {
        ++fillCalls;
        return add(add(a, b), c);
    }
    static Color add(Color p, Color q) { return {p.r + q.r, p.g + q.g, p.b + q.b, p.a + q.a}; }
    std::vector<int> rows;
    int fillCalls = 0;
};

} // namespace

using PixelLoops = EngineTest;

TEST_F(PixelLoops, SourcesOutsideTheirRegionReadAsTheirFillColours) {
    // The result covers rows 10-13 and columns -2..6; each source covers another part or none.
    IxTile const result(kRGBA32, {-2, 6, 10, 14}, {});
    IxTile const a = solid(kRGBA32, {-2, 2, 10, 14}, {1, 0, 0, 0}, {0, 0, 0, 0.25f});
    IxTile const b = solid(kRGB8, {2, 100, 12, 20}, {0, 1, 0, 1}, {0, 0, 0, 0.5f});
    IxTile const c = solid(kRGBA32, {50, 60, 50, 60}, {9, 9, 9, 9}, {0, 0, 4, 0});
    IxWriteGuard guard(result);
    Sum3 loop(guard, PiImageModifierTypes::AFFECT_RGB);
    EXPECT_EQ(loop.affects(), PiImageModifierTypes::AFFECT_RGB);
    loop.process(IxReadGuard(a), IxReadGuard(b), IxReadGuard(c));

    EXPECT_EQ(loop.rows, (std::vector<int>{10, 11, 12, 13})); // absolute rows
    EXPECT_EQ(loop.fillCalls, 1);
    EXPECT_EQ(guard.getTile().getFillColor(), (Color{0, 0, 4, 0.75f}));
    for (int y = 10; y < 14; ++y)
        for (int x = -2; x < 6; ++x) {
            Color const fromA = x < 2 ? Color{1, 0, 0, 0} : Color{0, 0, 0, 0.25f};
            Color const fromB = (x >= 2 && y >= 12) ? Color{0, 1, 0, 1} : Color{0, 0, 0, 0.5f};
            Color const expected = Sum3::add(Sum3::add(fromA, fromB), {0, 0, 4, 0});
            ASSERT_EQ(*guard.getPixel<Color>(x, y), expected) << x << "," << y;
        }
}

TEST_F(PixelLoops, AnEmptyRegionStillSetsTheFillColour) {
    IxTile const result(kRGBA32, {}, {});
    IxTile const a(kRGBA32, {}, {1, 2, 3, 4});
    IxWriteGuard guard(result);
    Sum3 loop(guard, PiImageModifierTypes::AFFECT_RGBA);
    loop.process(IxReadGuard(a), IxReadGuard(a), IxReadGuard(a));
    EXPECT_TRUE(loop.rows.empty());
    EXPECT_EQ(guard.getTile().getFillColor(), (Color{3, 6, 9, 12}));
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
    ColorSourceSpec source;
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
