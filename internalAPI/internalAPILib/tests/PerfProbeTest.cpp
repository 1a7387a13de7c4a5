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

// The largest difference of alpha between two tiles of one region.
float maxAlphaDifference(IxTile const& a, IxTile const& b) {
    IxReadGuard ga(a);
    IxReadGuard gb(b);
    GeRectangle<int> const& r = a.getPixelRegion();
    bool const rgba = a.getPixelFormat().getComps() == IxPixelFormat::RGBA;
    float worst = 0.0f;
    for (int y = r.ymin; y < r.ymax; ++y)
        for (int x = r.xmin; x < r.xmax; ++x) {
            float const p = rgba ? ga.getPixel<Color>(x, y)->a : *ga.getPixel<float>(x, y);
            float const q = rgba ? gb.getPixel<Color>(x, y)->a : *gb.getPixel<float>(x, y);
            worst = std::max(worst, std::fabs(p - q));
        }
    return worst;
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

TEST_F(PerfProbes, EveryOperationRunsAndIsTimed) {
    for (char const* op :
         {"NOOP", "BLUR", "BLUR_OLD", "DILATE", "EDGE", "CONTROL_EDGE", "FILL", "DISTANCE"}) {
        OPtr<TestPerfBase> p = TestPerfRegistry::create("ScanlinePerf");
        p->initialize({{"operation", op},
                       {"radius", "3.5"},
                       {"width", "37"},
                       {"height", "29"},
                       {"comps", "RGBA"}});
        p->run();
        p->run();
        EXPECT_EQ(p->getProfilerStats().runs, 2) << op;
        EXPECT_GT(p->getProfilerStats().totalSeconds, 0.0) << op;
        p->cleanUp();
    }
    OPtr<TestPerfBase> p = TestPerfRegistry::create("CompPerf");
    p->initialize(
        {{"compositing", "ATOP"}, {"correlation", "ADJACENT"}, {"width", "20"}, {"height", "9"}});
    p->run();
    EXPECT_EQ(p->getProfilerStats().runs, 1);
    p->cleanUp();
}

TEST_F(PerfProbes, PipeBlurAgreesWithTheTileFilter) {
    // The probe's tiles: a matte with hard and soft edges and thin lines.
    for (char const* comps : {"ALPHA", "RGBA"}) {
        struct Run final : IpTestPerf {
            using IpTestPerf::IpTestPerf;
            void run() override {}
            std::string getUsage() const override { return ""; }
        } probe("tiles", 3);
        probe.initialize({{"width", "77"}, {"height", "45"}, {"comps", comps}});
        for (float r : {1.0f, 6.5f}) {
            {
                IxWriteGuard pipe(probe.getTile(1));
                IxWriteGuard old(probe.getTile(2));
                IxReadGuard const src(probe.getTile(0));
                TestScanlinePipeUtils::performOperation(pipe, src, TestScanlinePipeUtils::BLUR,
                                                        IpDilate::DISC, r, r * 0.5f, nullptr);
                TestScanlinePipeUtils::performOperation(old, src,
                                                        TestScanlinePipeUtils::BLUR_ORIGINAL,
                                                        IpDilate::DISC, r, r * 0.5f, nullptr);
            }
            EXPECT_LT(maxAlphaDifference(probe.getTile(1), probe.getTile(2)), 1e-5f)
                << comps << " " << r;
            // And the blur did something.
            EXPECT_GT(maxAlphaDifference(probe.getTile(0), probe.getTile(1)), 0.05f)
                << comps << " " << r;
        }
        probe.cleanUp();
    }
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
