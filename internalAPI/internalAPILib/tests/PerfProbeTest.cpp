#include "../../procImp/tests/EngineTestSupport.h"

#include "CompProc.h"
#include "IpTestPerf.h"
#include "IxGuardBase.h"
#include "IxImageOps.h"
#include "TestPerf.h"
#include "TestScanlinePipeUtils.h"

#include <cmath>

using namespace VnTest;
using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
using Options = TestPerfBase::Options;

std::string usageError(char const* probe, Options const& options) {
    OPtr<TestPerfBase> p = TestPerfRegistry::create(probe);
    try {
        p->initialize(options);
    } catch (TestPerfBase::ExUsageError const& e) {
        p->cleanUp();
        return e.getReason();
    }
    p->cleanUp();
    return "(accepted)";
}

} // namespace

using PerfProbes = EngineTest;

TEST_F(PerfProbes, BadOptionsGiveTheirUsageErrors) {
    auto names = TestPerfRegistry::getNames();
    EXPECT_EQ(names, (std::vector<std::string>{"CompPerf", "ScanlinePerf"}));
    EXPECT_EQ(TestPerfRegistry::create("NoSuchProbe").get(), nullptr);
    EXPECT_EQ(TestPerfRegistry::create("ScanlinePerf")->getUsage(),
              "operation : BLUR,BLUR_OLD,DILATE,EDGE,CONTROL_EDGE,FILLDISTANCE,NOOP\n"
              "radius : 1.0-512.0 : filter radius\n");
    EXPECT_EQ(TestPerfRegistry::create("CompPerf")->getUsage(),
              "compositing : OVER,REPLACE,ATOP,INSIDE,OUTSIDE,CUTOUT,XOR\n"
              "correlation : NONE,SUPERPOSED,ADJACENT\n");

    Options const small{{"width", "8"}, {"height", "8"}};
    auto with = [&](Options extra) {
        extra.insert(small.begin(), small.end());
        return extra;
    };
    EXPECT_EQ(usageError("ScanlinePerf", with({{"radius", "2"}})), "No operation specified.");
    EXPECT_EQ(usageError("ScanlinePerf", with({{"operation", "BLURRY"}, {"radius", "2"}})),
              "Unknown operation specified.");
    EXPECT_EQ(usageError("ScanlinePerf", with({{"operation", "BLUR"}})), "No radius specified.");
    for (char const* bad : {"0.99", "512.5", "many", "-3"})
        EXPECT_EQ(usageError("ScanlinePerf", with({{"operation", "DILATE"}, {"radius", bad}})),
                  "Radius must be from 1 to 512.")
            << bad;
    EXPECT_EQ(usageError("ScanlinePerf", with({{"operation", "FILL"}, {"radius", "512"}})),
              "(accepted)");
    EXPECT_EQ(usageError("ScanlinePerf", {{"operation", "FILL"}, {"radius", "2"}, {"width", "0"}}),
              "Tile size must be from 1 to 16384.");
    EXPECT_EQ(usageError("CompPerf", with({{"correlation", "NONE"}})),
              "No compositing operation specified.");
    EXPECT_EQ(usageError("CompPerf", with({{"compositing", "UNDER"}, {"correlation", "NONE"}})),
              "Unknown compositing operation specified.");
    EXPECT_EQ(usageError("CompPerf", with({{"compositing", "XOR"}})), "No correlation specified.");
    EXPECT_EQ(usageError("CompPerf", with({{"compositing", "XOR"}, {"correlation", "SOME"}})),
              "Unknown correlation specified.");
}

TEST_F(PerfProbes, EveryOperationRunsIsTimedAndDoesItsWork) {
    // What each operation's result must satisfy against its source, pixel by pixel: s the
    // source's alpha, d the result's.
    struct Case {
        char const* op;
        bool (*holds)(float s, float d);
        bool changes; // some pixel differs
    };
    Case const cases[] = {
        {"NOOP", [](float s, float d) { return d == s; }, false},
        {"BLUR", [](float, float d) { return d >= 0.0f && d <= 1.0f + 1e-6f; }, true},
        {"BLUR_OLD", [](float, float d) { return d >= 0.0f && d <= 1.0f + 1e-6f; }, true},
        {"DILATE", [](float s, float d) { return d >= s; }, true},
        {"FILL", [](float s, float d) { return d >= s; }, true},
        {"DISTANCE", [](float s, float d) { return s >= 0.5f ? d == 1.0f : d >= 0 && d < 1; },
         true},
        {"EDGE", [](float, float d) { return d >= 0.0f && d <= 1.0f; }, true},
        {"CONTROL_EDGE", [](float, float d) { return d >= 0.0f && d <= 1.0f; }, true},
    };
    for (Case const& c : cases) {
        OPtr<TestPerfBase> p = TestPerfRegistry::create("ScanlinePerf");
        p->initialize({{"operation", c.op},
                       {"radius", "3.5"},
                       {"width", "37"},
                       {"height", "29"},
                       {"comps", "RGBA"}});
        p->run();
        p->run();
        EXPECT_EQ(p->getProfilerStats().runs, 2) << c.op;
        EXPECT_GT(p->getProfilerStats().totalSeconds, 0.0) << c.op;
        auto const& tiles = dynamic_cast<IpTestPerf const&>(*p);
        IxReadGuard const src(tiles.getTile(0));
        IxReadGuard const dst(tiles.getTile(1));
        GeRectangle<int> const& r = tiles.getTile(0).getPixelRegion();
        bool changed = false;
        for (int y = r.ymin; y < r.ymax; ++y)
            for (int x = r.xmin; x < r.xmax; ++x) {
                float const s = src.getPixel<Color>(x, y)->a;
                float const d = dst.getPixel<Color>(x, y)->a;
                changed = changed || s != d;
                ASSERT_TRUE(c.holds(s, d))
                    << c.op << " at " << x << "," << y << ": " << s << " " << d;
            }
        EXPECT_EQ(changed, c.changes) << c.op;
        p->cleanUp();
    }
    OPtr<TestPerfBase> p = TestPerfRegistry::create("CompPerf");
    p->initialize(
        {{"compositing", "ATOP"}, {"correlation", "ADJACENT"}, {"width", "20"}, {"height", "9"}});
    p->run();
    EXPECT_EQ(p->getProfilerStats().runs, 1);
    p->cleanUp();
}

TEST_F(PerfProbes, CorrelationSaysHowCoveragesOverlap) {
    // Half-covering foreground over a half-covering background, red over blue.
    IxPixelFormat const rgba(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
    GeRectangle<int> const r(0, 3, 0, 1);
    IxTile const fg(rgba, r, {1, 0, 0, 0.5f});
    IxTile const bg(rgba, r, {0, 0, 1, 0.5f});
    ipSet(IxWriteGuard(fg), r, {1, 0, 0, 0.5f});
    ipSet(IxWriteGuard(bg), r, {0, 0, 1, 0.5f});
    IxScanline<Color> mask(0, 3,
                           IxPaddingPolicy<Color>(IxPaddingPolicy<Color>::CONSTANT, {0, 0, 0, 1}));
    for (int x = 0; x < 3; ++x)
        mask[x] = {0, 0, 0, 1};
    struct Case {
        IxScanlineComp::CompOp op;
        IxScanlineComp::Correlation c;
        Color expected;
    };
    for (Case k : {Case{IxScanlineComp::OVER, IxScanlineComp::NONE, {2.0f / 3, 0, 1.0f / 3, 0.75f}},
                   Case{IxScanlineComp::OVER, IxScanlineComp::SUPERPOSED, {1, 0, 0, 0.5f}},
                   Case{IxScanlineComp::OVER, IxScanlineComp::ADJACENT, {0.5f, 0, 0.5f, 1.0f}},
                   Case{IxScanlineComp::INSIDE, IxScanlineComp::ADJACENT, {0, 0, 0, 0}},
                   Case{IxScanlineComp::XOR, IxScanlineComp::NONE, {0.5f, 0, 0.5f, 0.5f}},
                   Case{IxScanlineComp::CUTOUT, IxScanlineComp::SUPERPOSED, {0, 0, 0, 0}}}) {
        IxTile const out(rgba, r, {});
        IxWriteGuard g(out);
        CompProc(g, mask, k.op, k.c, 1, 1, 1, 1).process(IxReadGuard(fg), IxReadGuard(bg));
        Color const c = *g.getPixel<Color>(1, 0);
        EXPECT_NEAR(c.r, k.expected.r, 1e-6) << k.op << " " << k.c;
        EXPECT_NEAR(c.b, k.expected.b, 1e-6) << k.op << " " << k.c;
        EXPECT_NEAR(c.a, k.expected.a, 1e-6) << k.op << " " << k.c;
        EXPECT_NEAR(g.getTile().getFillColor().a, k.expected.a, 1e-6);
        // The alpha-only path gives the same alpha.
        IxTile const alpha(IxPixelFormat(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32), r, {});
        IxWriteGuard ga(alpha);
        TestCompAlphaProc(ga, k.op, k.c, 1, 1, 1, 1).process(IxReadGuard(fg), IxReadGuard(bg));
        EXPECT_NEAR(*ga.getPixel<float>(2, 0), k.expected.a, 1e-6) << k.op << " " << k.c;
    }
    // A transparent mask with full mask amount leaves the background.
    for (int x = 0; x < 3; ++x)
        mask[x].a = 0.0f;
    IxTile const out(rgba, r, {});
    IxWriteGuard g(out);
    CompProc(g, mask, IxScanlineComp::OVER, IxScanlineComp::NONE, 1, 1, 1, 1)
        .process(IxReadGuard(fg), IxReadGuard(bg));
    EXPECT_EQ(*g.getPixel<Color>(0, 0), (Color{0, 0, 1, 0.5f}));
}
