#include "EngineTestSupport.h"
#include "ExBase.h"
#include "ImageTestGraph.h"
#include "PxEx.h"
#include "PxImageTexture.h"
#include "PxPannerNode.h"
#include "PxSamplers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <mutex>

using namespace VnTest;
using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;

class Panner : public EngineTest {};

// A frame whose pixels tell where they are.
class RampSource final : public PxImageLeafNode {
public:
    using PxImageLeafNode::PxImageLeafNode;
    static Color at(int x, int y) { return {(x + 100) / 256.0f, (y + 100) / 256.0f, 0.5f, 1.0f}; }
    PxImageResult getImageResult(PxImageContext const& context) const override {
        PxValidityInterval vi = PxValidityInterval::FULL;
        IxTile const tile = allocateImageBuffer(context, vi);
        IxWriteGuard const g(tile);
        GeRectangle<int> const& r = tile.getPixelRegion();
        for (int y = r.ymin; y < r.ymax; ++y)
            for (int x = r.xmin; x < r.xmax; ++x)
                *g.getPixel<Color>(x, y) = at(x, y);
        std::lock_guard<std::mutex> const lock(_lastLock);
        _last = tile;
        return PxImageResult(tile, vi);
    }
    // The tile made last; tiles are made by several workers at once.
    IxTile last() const {
        std::lock_guard<std::mutex> const lock(_lastLock);
        return _last;
    }

private:
    mutable std::mutex _lastLock;
    mutable IxTile _last;
};

PxStrongHndl<PxImageProtocol const> ramp(int width = 700, int height = 530) {
    PxStrongHndl<PxImageFormatProtocol const> format =
        makeNode(new PxImageFormatNode(PxNode::Init{"format"}, imageFormat()));
    return makeNode(new RampSource(PxNode::Init{"ramp"}, format, animValue(width),
                                   animValue(height), animValue(CoRgbColorTyped<float>{}),
                                   animValue(0.0)));
}

PxStrongHndl<PxImageProtocol const> panner(PxStrongHndl<PxImageProtocol const> const& image,
                                           double dx, double dy, int filter) {
    // The pan is split over its two terms.
    return makeNode(new PxPannerNode(PxNode::Init{"pan"}, image, animValue(dx - 1.0),
                                     animValue(dy + 2.0), animValue(1.0), animValue(-2.0),
                                     animValue(filter), animValue(1.0)));
}

PxImageResult tile(PxStrongHndl<PxImageProtocol const> const& node, int i, int j) {
    return tileOf(node, PxImageContext(0.0, {i, j}, 0, 0));
}

Color read(PxImageResult const& r, int x, int y) {
    GeRectangle<int> const& reg = r.getPixelRegion();
    if (!reg.contains(x, y))
        return r.getFillColor();
    return pixelAt(r.getTile(), x, y);
}

bool near(Color const& a, Color const& b, float tol) {
    return std::fabs(a.r - b.r) <= tol && std::fabs(a.g - b.g) <= tol &&
           std::fabs(a.b - b.b) <= tol && std::fabs(a.a - b.a) <= tol;
}

} // namespace

TEST_F(Panner, WholePixelPansCopyTilesAndAZeroPanForwards) {
    auto const src = ramp();
    PxImageResult const zero = tile(panner(src, 0.0, 0.0, 0), 0, 0);
    auto const* source = dynamic_cast<RampSource const*>(src.get());
    EXPECT_EQ(IxReadGuard(zero.getTile()).getFirst(), IxReadGuard(source->last()).getFirst());

    // Less than a pixel without a filter moves nothing.
    PxImageResult const small = tile(panner(src, 0.4, -0.4, 0), 0, 0);
    for (auto [x, y] : {std::pair{0, 0}, {17, 300}, {511, 511}})
        EXPECT_TRUE(near(read(small, x, y), RampSource::at(x, y), 0.0f)) << x << "," << y;

    // Whole pixels: every tile of the moved frame against a shift with transparent borders.
    auto const moved = panner(src, 37.0, -250.0, 0);
    for (int j = -1; j <= 1; ++j)
        for (int i = 0; i <= 1; ++i) {
            PxImageResult const r = tile(moved, i, j);
            GeRectangle<int> const& reg = r.getPixelRegion();
            for (int y = reg.ymin; y < reg.ymax; y += 7)
                for (int x = reg.xmin; x < reg.xmax; x += 5) {
                    int const sx = x - 37;
                    int const sy = y + 250;
                    Color const want = sx >= 0 && sx < 700 && sy >= 0 && sy < 530
                                           ? RampSource::at(sx, sy)
                                           : Color{};
                    ASSERT_TRUE(near(read(r, x, y), want, 0.0f)) << x << "," << y;
                }
        }
}

TEST_F(Panner, FilteredPansResampleAndAgreeWithWholePixelsAtIntegerOffsets) {
    auto const src = ramp();
    PxImageResult const whole = tile(panner(src, 21.0, 13.0, 0), 0, 0);
    for (int filter : {1, 3, 4, 5}) {
        PxImageResult const filtered = tile(panner(src, 21.0, 13.0, filter), 0, 0);
        float const tol = filter == 1 ? 1e-5f : 2e-3f;
        // Away from the frame's edges, where the wider filters reach the transparent outside.
        for (auto [x, y] : {std::pair{30, 20}, {100, 200}, {400, 333}, {511, 511}})
            EXPECT_TRUE(near(read(filtered, x, y), read(whole, x, y), tol))
                << filter << " at " << x << "," << y << ": " << read(filtered, x, y).r << " vs "
                << read(whole, x, y).r;
    }
    // Half a pixel with bilinear: the mean of two neighbours.
    PxImageResult const half = tile(panner(src, 0.5, 0.0, 1), 0, 0);
    Color const c = read(half, 50, 60);
    EXPECT_NEAR(c.r, 0.5f * (RampSource::at(49, 60).r + RampSource::at(50, 60).r), 1e-5f);
    EXPECT_NEAR(c.g, RampSource::at(50, 60).g, 1e-5f);
}

TEST_F(Panner, BadPansAndFiltersAreClearErrors) {
    auto const src = ramp();
    double const nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(tile(panner(src, nan, 1.0, 0), 0, 0), ExBase);
    EXPECT_THROW(panner(src, 1.0, std::numeric_limits<double>::infinity(), 1)
                     ->getImageROD(PxTimeStreamContext(0.0, 0)),
                 ExBase);
    EXPECT_THROW(tile(panner(src, 1.5, 1.0, 7), 0, 0), ExBase);
    // Pans of 2^31 pixels and more: beyond any image, refused rather than wrapped.
    for (double far : {2147483648.0, -4294967296.0})
        EXPECT_THROW(tile(panner(src, far, 1.0, 0), 0, 0), PxEx::ExInvalidParameter);
}

TEST_F(Panner, ImageTexturesChooseTheirSamplerAndStandInForEmptyImages) {
    auto const rgba = ramp(64, 64);
    ColorSourceDesc rgbSpec;
    rgbSpec.format = imageFormat(IxPixelFormat::RGB);
    auto const rgb = colorSource(rgbSpec);
    ColorSourceDesc alphaSpec;
    alphaSpec.format = imageFormat(IxPixelFormat::ALPHA);
    auto const alpha = colorSource(alphaSpec);
    PxTimeScaleContext const ctx(0.0, 0);
    SdTextureParams params;
    params.filter = 1;
    auto texture = [&](auto const& node, SdTextureParams const& p) {
        return RCShdPtr<PxImageTexture const>(
            new PxImageTexture(PxNodePtr<PxImageProtocol const>(node), ctx, p));
    };
    EXPECT_NE(dynamic_cast<PxBilinearSampler const*>(texture(rgba, params)->getSampler().get()),
              nullptr);
    EXPECT_NE(dynamic_cast<PxBilinearRGBSampler const*>(texture(rgb, params)->getSampler().get()),
              nullptr);
    EXPECT_TRUE(texture(rgb, params)->isOpaque());
    EXPECT_FALSE(texture(alpha, params)->isOpaque());
    EXPECT_FALSE(texture(rgba, params)->isOpaque());
    SdTextureParams bad = params;
    bad.filter = 7;
    EXPECT_TRUE(texture(rgba, bad)->getSampler().isNull());
    bad.filter = -1;
    EXPECT_TRUE(texture(rgba, bad)->getSampler().isNull());
    EXPECT_THROW(texture(PxStrongHndl<PxImageProtocol const>(), params), ExBase);

    // An empty frame, valid for a while: transparent black for as long.
    ColorSourceDesc emptySpec;
    emptySpec.width = 0;
    auto const format = makeNode(new PxImageFormatNode(PxNode::Init{"format"}, imageFormat()));
    auto const empty = makeNode(new PxColorSourceNode(
        PxNode::Init{"empty"}, format, animValue(0, PxValidityInterval(1.0, 3.0)), animValue(8),
        animValue(CoRgbColorTyped<float>{}), animValue(0.0),
        animValue(CoRgbColorTyped<float>{1, 1, 1}), animValue(1.0)));
    OPtr<SdTextureSampler const> const s =
        RCShdPtr<PxImageTexture const>(new PxImageTexture(PxNodePtr<PxImageProtocol const>(empty),
                                                          PxTimeScaleContext(2.0, 0), params))
            ->getSampler();
    ASSERT_NE(dynamic_cast<SampleTransparentBlack const*>(s.get()), nullptr);
    EXPECT_EQ(s->sample(GePoint<double>{0.5, 0.5}, GeLinearMatrix2<double>()), Color{});
    PxValidityInterval vi = PxValidityInterval::FULL;
    s->reduceVI(vi);
    EXPECT_EQ(vi, PxValidityInterval(1.0, 3.0));
}
