#include "EngineTestSupport.h"
#include "IxImageOps.h"
#include "PxEWASplatter.h"
#include "PxEx.h"
#include "SamplerTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

using namespace VnTest;
using namespace Vn;

namespace {

class EWASplatter : public EngineTest {};

double weightSum(PxEWASplatter const& s) {
    IxWriteGuard const& w = s.getWeights();
    GeRectangle<int> const& r = w.getPixelRegion();
    double sum = 0;
    for (int y = r.ymin; y < r.ymax; ++y)
        for (int x = r.xmin; x < r.xmax; ++x)
            sum += *w.getPixel<float>(x, y);
    return sum;
}

Color pixelOf(IxTile const& tile, int x, int y) {
    IxReadGuard const g(tile);
    Color c;
    IxPixelFormat const& f = tile.getPixelFormat();
    IxConvertUtil::readFrom(&c, g.getAddress(x, y), 1, ImPixelFormat(f.getComps(), f.getDepth()));
    return c;
}

} // namespace

TEST_F(EWASplatter, EachSplatSpreadsAUnitOfWeightOverItsWholeEllipse) {
    IxTile const target(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                        {-20, 44, 10, 74}, {});
    std::optional<PxEWASplatter> s;
    s.emplace(IxWriteGuard(target), PxEWAFilterShape::getGauss(), 1.0f, 0.0f, 64.0f);
    Color const red{1, 0, 0, 0.5f};
    // Wide, then tall, then turned: both walking orders.
    for (auto const& j : {GeLinearMatrix2<float>(3, 0, 0, 1), GeLinearMatrix2<float>(1, 0, 0, 3),
                          GeLinearMatrix2<float>(2, 1.5f, -1, 2)}) {
        double const before = weightSum(*s);
        s->splatter(red, {10.3f, 40.6f}, j);
        EXPECT_NEAR(weightSum(*s) - before, 1.0, 1e-5);
    }
    // Centred half a pixel left of the target's edge, the ellipse is cut in halves.
    double const before = weightSum(*s);
    s->splatter(red, {-20.5f, 30.0f}, GeLinearMatrix2<float>(4, 0, 0, 4));
    EXPECT_NEAR(weightSum(*s) - before, 0.5, 1e-5);
    // Wholly outside: nothing.
    s->splatter(red, {-60.0f, 30.0f}, GeLinearMatrix2<float>(4, 0, 0, 4));
    EXPECT_NEAR(weightSum(*s) - before, 0.5, 1e-5);
    // Transparent colour adds weight, no colour.
    s->splatter({0, 1, 0, 0}, {40.0f, 70.0f}, GeLinearMatrix2<float>(1, 0, 0, 1));
    s.reset();

    // The float target is normalised in place: splats of one colour give that colour back;
    // the transparent one and untouched pixels end transparent black.
    Color const c = pixelOf(target, 10, 40);
    EXPECT_NEAR(c.r, 1.0f, 1e-5f);
    EXPECT_NEAR(c.g, 0.0f, 1e-6f);
    EXPECT_NEAR(c.a, 0.5f, 1e-5f);
    EXPECT_TRUE(sameBits(pixelOf(target, 40, 70), Color{}));
    EXPECT_TRUE(sameBits(pixelOf(target, 43, 11), Color{}));
}

TEST_F(EWASplatter, OtherFormatsAreFinishedThroughAFloatAccumulator) {
    IxTile const target(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8), {0, 16, 0, 16},
                        {});
    {
        PxEWASplatter const s(IxWriteGuard(target), PxEWAFilterShape::getJinc2(), 1.0f, 0.5f, 8.0f);
        // Blue on the left half, white on the right: the middle column mixes them.
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x)
                s.splatter(x < 8 ? Color{0, 0, 1, 1} : Color{1, 1, 1, 1}, {x + 0.5f, y + 0.5f},
                           GeLinearMatrix2<float>(1, 0, 0, 1));
        // Bad footprints and centres are ignored or bounded, never undefined.
        float const nan = std::numeric_limits<float>::quiet_NaN();
        s.splatter({1, 0, 0, 1}, {nan, 12.0f}, GeLinearMatrix2<float>(1, 0, 0, 1));
        s.splatter({1, 0, 0, 1}, {3.0f, 3.0f}, GeLinearMatrix2<float>(nan, 1e30f, 0, -1e-30f));
    }
    // The splat at no place added nothing anywhere on its row; the one of no size stayed a
    // small red mark where it was asked.
    for (int x = 0; x < 8; ++x)
        EXPECT_LE(pixelOf(target, x, 12).r, 2.0f / 255) << x;
    Color const mark = pixelOf(target, 3, 3);
    EXPECT_GT(mark.r, 2.0f / 255);
    EXPECT_NEAR(mark.a, 1.0f, 1.0f / 255);
    EXPECT_LE(pixelOf(target, 3, 7).r, 2.0f / 255);
    Color const left = pixelOf(target, 2, 8);
    Color const right = pixelOf(target, 13, 8);
    EXPECT_NEAR(left.b, 1.0f, 1.0f / 255);
    EXPECT_LE(left.r, 2.0f / 255);
    EXPECT_NEAR(right.r, 1.0f, 1.0f / 255);
    Color const middle = pixelOf(target, 8, 8);
    EXPECT_GT(middle.r, 0.2f);
    EXPECT_LT(middle.r, 0.9f);
    EXPECT_NEAR(middle.a, 1.0f, 1.0f / 255);
}

TEST_F(EWASplatter, ACancelledSplatterLeavesItsTargetAsItWas) {
    // Cancelled between splats, or after the last one while the splatter normalises: either
    // way the cancellation reaches the request and no row of the target is written.
    for (bool whileSplatting : {true, false}) {
        IxTile const target(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8), {0, 8, 0, 8},
                            {});
        ipSet(IxWriteGuard(target), target.getPixelRegion(), {0.2f, 0.4f, 0.6f, 0.8f});
        PxRequest* self = nullptr;
        int splats = 0;
        auto* r = new FnRequest([&] {
            PxEWASplatter const s(IxWriteGuard(target), PxEWAFilterShape::getGauss(), 1.0f, 0.5f,
                                  8.0f);
            for (int i = 0; i < 6; ++i) {
                if (i == (whileSplatting ? 3 : 5))
                    engine().cancelRequest(self);
                if (whileSplatting || i < 5) {
                    s.splatter({1, 0, 0, 1}, {i + 0.5f, 4.5f}, GeLinearMatrix2<float>(1, 0, 0, 1));
                    ++splats;
                }
            }
        });
        PxRequestPtr<FnRequest> const p(r);
        self = r;
        engine().executeRequest(r, false);
        EXPECT_THROW(engine().waitRequest(r), PxEx::ExRequestCancelled) << whileSplatting;
        EXPECT_EQ(splats, whileSplatting ? 3 : 5);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                ASSERT_NEAR(pixelOf(target, x, y).r, 0.2f, 0.003f)
                    << whileSplatting << " at " << x << "," << y;
    }
}
