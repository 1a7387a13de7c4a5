#include "ImageTestGraph.h"

#include "ExBase.h"
#include "ImageProtocolServices.h"
#include "PxConfig.h"
#include "PxEx.h"

#include <limits>
#include <optional>

using namespace VnTest;
using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;

IxPixelFormat const kRGBA32(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);

// A tile whose pixel (x, y) is (x, y, 0, 1).
IxTile rampTile(GeRectangle<int> const& region, Color fill = {0.5f, 0.5f, 0.5f, 0.5f}) {
    IxTile t(kRGBA32, region, fill);
    IxWriteGuard const g(t);
    for (int y = region.ymin; y < region.ymax; ++y)
        for (int x = region.xmin; x < region.xmax; ++x)
            *g.getPixel<Color>(x, y) = {float(x), float(y), 0.0f, 1.0f};
    return t;
}

PxImageProtocolServices& services() {
    return PxImageProtocolServices::getInstance();
}

Color const kFill{0.5f, 0.5f, 0.5f, 0.5f};

} // namespace

using ImageServices = EngineTest;

// Inside the source, the guard is the source's own memory; beyond it, the fill colour pads.
TEST_F(ImageServices, ExtendGuardKeepsTheSourceMemoryOrPadsWithTheFillColour) {
    IxTile const whole = rampTile({0, 16, 0, 8});
    IxReadGuard const wg(whole);
    IxReadGuard const within = services().extendGuard(wg, {2, 10, 1, 7});
    EXPECT_EQ(within.getAddress(3, 3), wg.getAddress(3, 3));
    EXPECT_EQ(within.getPixelRegion(), whole.getPixelRegion());

    // An empty source: all fill.
    IxTile const empty(kRGBA32, {}, kFill);
    IxReadGuard const eg = services().extendGuard(IxReadGuard(empty), {-3, 4, 2, 5});
    for (int y = 2; y < 5; ++y)
        for (int x = -3; x < 4; ++x)
            ASSERT_EQ(*eg.getPixel<Color>(x, y), kFill) << x << "," << y;

    // A partial overlap: the source where it is, the fill in the four bands around it.
    IxTile const t = rampTile({2, 6, 3, 5});
    GeRectangle<int> const region{0, 9, 1, 8};
    IxReadGuard const g = services().extendGuard(IxReadGuard(t), region);
    ASSERT_EQ(g.getPixelRegion(), region);
    for (int y = region.ymin; y < region.ymax; ++y)
        for (int x = region.xmin; x < region.xmax; ++x) {
            bool const inside = x >= 2 && x < 6 && y >= 3 && y < 5;
            Color const expected = inside ? Color{float(x), float(y), 0.0f, 1.0f} : kFill;
            ASSERT_EQ(*g.getPixel<Color>(x, y), expected) << x << "," << y;
        }
}

TEST_F(ImageServices, AssembleTilesJoinsTheirPixelsOverTheRegion) {
    Vector<PxImageResult> results{{rampTile({0, 4, 0, 4}, kFill), PxValidityInterval::FULL},
                                  {rampTile({4, 8, 0, 4}), PxValidityInterval::FULL},
                                  {rampTile({0, 8, 4, 6}), PxValidityInterval::FULL}};
    IxTile const joined = services().assembleTiles(results, {1, 100, 2, 5});
    ASSERT_EQ(joined.getPixelRegion(), (GeRectangle<int>{1, 8, 2, 5}));
    EXPECT_EQ(joined.getFillColor(), kFill);
    for (int y = 2; y < 5; ++y)
        for (int x = 1; x < 8; ++x)
            ASSERT_EQ(pixelAt(joined, x, y), (Color{float(x), float(y), 0.0f, 1.0f}));

    // Tiles all empty: an empty tile of the first one's format and fill.
    IxPixelFormat const u8(IxPixelFormat::ALPHA, IxPixelFormat::UINT8);
    Vector<PxImageResult> empties{{IxTile(u8, {}, kFill), PxValidityInterval::FULL},
                                  {IxTile(kRGBA32, {}, {}), PxValidityInterval::FULL}};
    IxTile const none = services().assembleTiles(empties, {0, 10, 0, 10});
    EXPECT_TRUE(none.isValid());
    EXPECT_TRUE(none.getPixelRegion().isEmpty());
    EXPECT_EQ(none.getPixelFormat(), u8);
    EXPECT_EQ(none.getFillColor(), kFill);
    EXPECT_FALSE(services().assembleTiles({}, {0, 1, 0, 1}).isValid());
}

TEST_F(ImageServices, AllocateTileCutsTheRegionToTheContextsTile) {
    int const w = PxConfig::getTileSizeX();
    IxTile const t = services().allocateTile(PxImageContext(0.0, {1, 0}, 0, 0), kRGBA32, kFill,
                                             {0, 3 * w, 5, 9});
    EXPECT_EQ(t.getPixelRegion(), (GeRectangle<int>{w, 2 * w, 5, 9}));
    IxTile const out =
        services().allocateTile(PxImageContext::outside(0.0, 0), kRGBA32, kFill, {0, 3 * w, 5, 9});
    EXPECT_TRUE(out.getPixelRegion().isEmpty());
    EXPECT_EQ(out.getFillColor(), kFill);
}

using ImageSources = EngineTest;

TEST_F(ImageSources, BlackSourceHasNoPixelsAndFullValidity) {
    PxStrongHndl<PxImageProtocol const> black =
        makeNode(new PxBlackSourceNode(PxNode::Init{"black"}));
    PxImageResult const r = tileOf(black, PxImageContext(3.0, {2, -1}, 1, 0));
    EXPECT_TRUE(r.getPixelRegion().isEmpty());
    EXPECT_EQ(r.getTile().getPixelFormat(),
              IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8));
    EXPECT_EQ(r.getFillColor(), (Color{0, 0, 0, 0}));
    EXPECT_TRUE(r.getValidityInterval().isFull());
    auto const rod = submitted(
        new PxImageRODRequest(PxUPtr<PxImageProtocol const>(black), PxTimeStreamContext(0.0, 0)));
    EXPECT_TRUE(rod->getImageROD().getROD().isEmpty());
    EXPECT_TRUE(rod->getImageROD().getValidityInterval().isFull());
}

TEST_F(ImageSources, ColorSourceFillsItsFrameAndNarrowsTheValidity) {
    ColorSourceDesc source;
    source.fill = {1.0f, 0.0f, 0.0f};
    source.fillOpacity = 0.5;
    source.colorVI = {-1.0, 4.0};
    source.opacityVI = {2.0, 9.0};
    auto node = colorSource(source);
    PxImageResult const r = tileOf(node, PxImageContext(2.5, {0, 0}, 0, 0));
    EXPECT_EQ(r.getPixelRegion(), (GeRectangle<int>{0, 40, 0, 30}));
    EXPECT_EQ(r.getValidityInterval(), PxValidityInterval(2.0, 4.0));
    EXPECT_EQ(r.getFillColor(), (Color{1.0f, 0.0f, 0.0f, 0.5f}));
    EXPECT_EQ(pixelAt(r.getTile(), 39, 29), (Color{0.25f, 0.5f, 0.75f, 1.0f}));

    // A constant colour leaves the opacity's validity alone, and the reverse.
    source.colorVI = PxValidityInterval::FULL;
    EXPECT_EQ(tileOf(colorSource(source), PxImageContext(2.5, {0, 0}, 0, 0)).getValidityInterval(),
              source.opacityVI);
    source.colorVI = {-1.0, 4.0};
    source.opacityVI = PxValidityInterval::FULL;
    EXPECT_EQ(tileOf(colorSource(source), PxImageContext(2.5, {0, 0}, 0, 0)).getValidityInterval(),
              source.colorVI);

    // The outside tile gives the fill colour and no pixels.
    PxImageResult const out = tileOf(node, PxImageContext::outside(2.5, 0));
    EXPECT_TRUE(out.getPixelRegion().isEmpty());
    EXPECT_EQ(out.getFillColor(), (Color{1.0f, 0.0f, 0.0f, 0.5f}));
}

TEST_F(ImageSources, ColorSourceFrameFollowsScaleAndAspect) {
    ColorSourceDesc source;
    source.width = 600;
    source.height = 20;
    source.format = imageFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32, Rational(2));
    auto node = colorSource(source);
    int const w = PxConfig::getTileSizeX();
    PxImageResult const second = tileOf(node, PxImageContext(0.0, {1, 0}, 0, 0));
    EXPECT_EQ(second.getPixelRegion(), (GeRectangle<int>{w, 600, 0, 20}));
    PxImageResult const half = tileOf(node, PxImageContext(0.0, {0, 0}, 1, 0));
    EXPECT_EQ(half.getPixelRegion(), (GeRectangle<int>{0, 300, 0, 10}));
    // Beyond the frame: an empty tile of the fill colour.
    EXPECT_TRUE(tileOf(node, PxImageContext(0.0, {5, 5}, 0, 0)).getPixelRegion().isEmpty());
}

TEST_F(ImageSources, MultiTileRequestGathersTheTilesOfEachForm) {
    int const w = PxConfig::getTileSizeX();
    int const h = PxConfig::getTileSizeY();
    ColorSourceDesc source;
    source.width = 2 * w + 3;
    source.height = h + 1;
    auto node = colorSource(source);
    for (int param : {0, 1}) {
        auto const whole = submitted(new PxImageMultiTileRequest(
            PxUPtr<PxImageProtocol const>(node), 0, PxTimeInfo(0.0), 0, param));
        auto results = whole->getResults();
        ASSERT_EQ(results->size(), 6u);
        GeRectangle<int> const all{0, 2 * w + 3, 0, h + 1};
        EXPECT_EQ(PxImageProtocol::computePixelRegion(*results), all);
        IxTile const joined = PxImageMultiTileRequest::assembleTiles(*results, all);
        EXPECT_EQ(pixelAt(joined, 2 * w + 2, h), (Color{0.25f, 0.5f, 0.75f, 1.0f}));
    }
    auto const rect = submitted(new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(node),
                                                            GeRectangle<int>{w - 1, w + 1, 0, 2}, 0,
                                                            PxTimeInfo(0.0), 0));
    EXPECT_EQ(rect->getResults()->size(), 2u);
    EXPECT_EQ(rect->getPixelRegion(), (GeRectangle<int>{w - 1, w + 1, 0, 2}));
    auto const tile = submitted(new PxImageMultiTileRequest(
        PxUPtr<PxImageProtocol const>(node), GeVector2<int>{2, 1}, 0, PxTimeInfo(0.0), 0));
    ASSERT_EQ(tile->getResults()->size(), 1u);
    EXPECT_EQ(tile->getResults()->front().getPixelRegion(),
              (GeRectangle<int>{2 * w, 2 * w + 3, h, h + 1}));
    // Outside the frame: nothing to gather.
    auto const none = submitted(new PxImageMultiTileRequest(
        PxUPtr<PxImageProtocol const>(node), GeVector2<int>{7, 7}, 0, PxTimeInfo(0.0), 0));
    EXPECT_TRUE(none->getResults()->empty());
}

TEST_F(ImageSources, FormatSetRequestChangesTheFormatAndInvalidatesTheParents) {
    auto formatNode = makeNode(new PxImageFormatNode(PxNode::Init{"format"}, imageFormat()));
    PxStrongHndl<PxImageProtocol const> source = makeNode(new PxColorSourceNode(
        PxNode::Init{"color"}, PxStrongHndl<PxImageFormatProtocol const>(formatNode), animValue(4),
        animValue(4), animValue(CoRgbColorTyped<float>{}), animValue(0.0),
        animValue(CoRgbColorTyped<float>{1, 1, 1}), animValue(1.0)));
    int invalidated = 0;
    struct Watcher final : PxImageNode {
        Watcher(PxStrongHndl<PxImageProtocol const> const& s, int& n)
            : PxNode(Init{"watcher"}), PxImageNode(Init{"watcher"}, s), _n(n) {}
        PxImageResult getImageResult(PxImageContext const& c) const override {
            return getPrimary()->getImageResult(c);
        }
        void invalidateAndReinitialize(PxValidityInterval const& vi, PxUPtr<PxNode const> const&,
                                       int stream) override {
            if (vi.isFull() && stream == -2)
                ++_n;
        }
        int& _n;
    };
    PxStrongHndl<PxImageProtocol const> watcher = makeNode(new Watcher(source, invalidated));
    watcher->registerChild(PxNodePtr<PxNode const>(source));
    PxImageFormat const half = imageFormat(IxPixelFormat::RGB, IxPixelFormat::FLOAT16);
    PxMutationRequest::submit(
        new PxImageFormatSetRequest(PxUPtr<PxImageFormatNode>(formatNode), half));
    auto const q =
        submitted(new PxImageFormatRequest(PxUPtr<PxImageFormatProtocol const>(watcher)));
    EXPECT_EQ(q->getImageFormat(), half);
    EXPECT_EQ(invalidated, 1);
}

namespace {
// Fails on one tile; the others are the colour source's.
class FailingTile final : public PxImageNode {
public:
    explicit FailingTile(PxStrongHndl<PxImageProtocol const> const& s)
        : PxNode(Init{"failing"}), PxImageNode(Init{"failing"}, s) {}
    PxImageResult getImageResult(PxImageContext const& c) const override {
        if (c.getTile() == GePoint2<int>{1, 0})
            VN_THROW_MSG(ExBase, "tile 1,0 failed");
        return getPrimary()->getImageResult(c);
    }
};

// Asks the tiles of a region from a worker, as nodes do.
class RegionRequest final : public PxQueryRequest<Vector<PxImageResult>> {
public:
    RegionRequest(PxStrongHndl<PxImageProtocol const> const& n, GeRectangle<int> const& r)
        : _node(n), _region(r) {}
    void performExecute() override {
        vi = PxValidityInterval::FULL;
        setResult(PxImageProtocol::getImageTilesInRegion(PxImageContext(1.0, {0, 0}, 0, 0),
                                                         PxNodePtr<PxImageProtocol const>(_node),
                                                         vi, _region, fill));
    }
    Vector<PxImageResult> const& get() const { return waitResult(); }
    PxValidityInterval vi;
    Color fill;

private:
    PxUPtr<PxImageProtocol const> _node;
    GeRectangle<int> _region;
};
} // namespace

TEST_F(ImageSources, AFailingTileFailsTheGatheringAndLeavesNothingBehind) {
    int const w = PxConfig::getTileSizeX();
    ColorSourceDesc source;
    source.width = 3 * w;
    PxStrongHndl<PxImageProtocol const> node = makeNode(new FailingTile(colorSource(source)));
    for (int param : {0, 1}) {
        auto const r = submitted(new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(node), 0,
                                                             PxTimeInfo(0.0), 0, param));
        try {
            r->getResults();
            ADD_FAILURE() << "no failure";
        } catch (ExBase const& e) {
            EXPECT_NE(e.getReason().find("tile 1,0 failed"), std::string::npos);
        }
    }
}

TEST_F(ImageSources, TilesInARegionCarryTheChildsFillAndValidity) {
    int const w = PxConfig::getTileSizeX();
    ColorSourceDesc source;
    source.width = 2 * w;
    source.fill = {0.0f, 1.0f, 0.0f};
    source.fillOpacity = 1.0;
    source.colorVI = {0.0, 2.0};
    auto node = colorSource(source);
    auto const r = submitted(new RegionRequest(node, {w - 2, w + 2, 0, 1}));
    ASSERT_EQ(r->get().size(), 2u);
    EXPECT_EQ(PxImageProtocol::computePixelRegion(r->get()), (GeRectangle<int>{0, 2 * w, 0, 30}));
    EXPECT_EQ(r->fill, (Color{0, 1, 0, 1}));
    EXPECT_EQ(r->vi, source.colorVI);
    // Outside the child: no tiles, and the fill colour is asked for alone.
    auto const none = submitted(new RegionRequest(node, {-9, -1, 0, 1}));
    EXPECT_TRUE(none->get().empty());
    EXPECT_EQ(none->fill, (Color{0, 1, 0, 1}));
    EXPECT_EQ(none->vi, source.colorVI);
}

// Nominal rectangles become pixels rounded outwards and tiles become pixels and back; coordinates
// no image can hold are refused with a reason, never turned into wrapped integers.
TEST_F(ImageSources, CoordinatesConvertExactlyAndThoseBeyondAnyImageAreRefused) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    int const big = 1 << 22; // tiles of at least 2^5 pixels: at least 2^27 pixels away
    int const w = PxConfig::getTileSizeX();
    int const h = PxConfig::getTileSizeY();
    using Pixels = std::optional<GeRectangle<int>>; // none: refused
    struct Nominal {
        char const* name;
        GeRectangle<float> rod;
        float aspect, scale;
        Pixels want;
    };
    Nominal const nominals[] = {
        {"a frame", {0, 1920, 0, 1080}, 1, 1, GeRectangle<int>{0, 1920, 0, 1080}},
        {"a scaled frame", {0, 1920, 0, 1080}, 2, 0.25f, GeRectangle<int>{0, 240, 0, 270}},
        {"fractions", {-0.5f, 2.5f, -1.25f, 0.75f}, 1, 1, GeRectangle<int>{-1, 3, -2, 1}},
        {"a fraction", {-0.5f, 10.2f, 0, 3}, 1, 1, GeRectangle<int>{-1, 11, 0, 3}},
        {"a centred frame", {-960, 960, -540, 540}, 1, 1, GeRectangle<int>{-960, 960, -540, 540}},
        {"a NaN side", {nan, 1, 0, 1}, 1, 1, std::nullopt},
        {"a far side", {0, 1e12f, 0, 1}, 1, 1, std::nullopt},
        {"far below", {0, 1, -3e9f, 0}, 1, 1, std::nullopt},
        {"a narrow pixel aspect", {0, 2e6f, 0, 1}, 1e-3f, 1, std::nullopt},
    };
    for (Nominal const& c : nominals) {
        SCOPED_TRACE(c.name);
        if (c.want) {
            EXPECT_EQ(PxImageProtocol::nominalToPixelized(c.rod, c.aspect, c.scale), *c.want);
        } else {
            EXPECT_THROW(PxImageProtocol::nominalToPixelized(c.rod, c.aspect, c.scale),
                         PxEx::ExInvalidParameter);
        }
    }
    EXPECT_EQ(PxImageProtocol::pixelizedToNominal({0, 240, 0, 270}, 2.0f, 0.25f),
              (GeRectangle<float>{0.0f, 1920.0f, 0.0f, 1080.0f}));

    struct Tiles {
        char const* name;
        GeRectangle<int> tiles;
        Pixels want;
    };
    Tiles const tiles[] = {
        {"tiles about the origin", {-1, 2, 0, 1}, GeRectangle<int>{-w, 2 * w, 0, h}},
        {"a tile above", {1, 2, -1, 0}, GeRectangle<int>{w, 2 * w, -h, 0}},
        {"near tiles", {-3, 4, -2, 1}, GeRectangle<int>{-3 * w, 4 * w, -2 * h, h}},
        {"far tiles", {0, big * 64, 0, 1}, std::nullopt},
        {"far tiles below", {0, 1, -big * 64, 0}, std::nullopt},
    };
    for (Tiles const& c : tiles) {
        SCOPED_TRACE(c.name);
        if (c.want) {
            EXPECT_EQ(PxImageProtocol::convertTilesToPixels(c.tiles), *c.want);
        } else {
            EXPECT_THROW(PxImageProtocol::convertTilesToPixels(c.tiles), PxEx::ExInvalidParameter);
        }
    }
    EXPECT_EQ(PxImageProtocol::convertPixelsToTiles({-1, w + 1, 0, h}),
              (GeRectangle<int>{-1, 2, 0, 1}));
    EXPECT_EQ(PxImageProtocol::convertPixelsToTiles({-w, 0, h - 1, h}),
              (GeRectangle<int>{-1, 0, 0, 1}));

    // A whole image of a billion pixels a side is more tiles than one request makes.
    ColorSourceDesc huge;
    huge.width = 1 << 29;
    huge.height = 1 << 29;
    auto const source = colorSource(huge);
    auto const all = submitted(
        new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(source), 0, PxTimeInfo(0.0), 0));
    EXPECT_THROW(all->getResults(), PxEx::ExInvalidParameter);
}
