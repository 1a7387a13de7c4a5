// Transform, Crop and Blur rendered through the engine against direct computations over the
// source's pixels, and the affine and crop arithmetic they share with other tools.
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "HoTools.h"
#include "HoTransformTools.h"
#include "InPackageInit.h"
#include "IxPixelUtil.h"
#include "PiCommandStack.h"
#include "PiImageInputPolicy.h"
#include "PiNode.h"
#include "PiPath.h"
#include "PiShowVectorsControllerHelper.h"
#include "PiTool.h"
#include "PiToolInterface.h"
#include "PxConfig.h"
#include "PxEx.h"
#include "PxImageRequests.h"
#include "PxImageSourceNodes.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"
#include "SdTexture.h"

#include "ToolGraphFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <numbers>
#include <random>

using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
using Image = PxStrongHndl<PxImageProtocol const>;

template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const> constant(T v) {
    return initialised<PxStrongHndl<PxAnimValueProtocol<T> const>>(
        new PxConstantAnimValueNode<T>(PxNode::Init{"constant"}, PxResult<T>(v)));
}

// A rendered frame addressed in the engine's pixels (rows grow upwards); transparent outside.
struct Frame {
    GeRectangle<int> region;
    std::vector<Color> pixels; // the bottom row first
    Color at(int x, int y) const {
        if (x < region.xmin || x >= region.xmax || y < region.ymin || y >= region.ymax)
            return {};
        return pixels[std::size_t((y - region.ymin) * region.width() + x - region.xmin)];
    }
};

// The frame at full size as the renderer makes it, or at a proxy scale as tiles asked of the
// engine at that scale.
GeRectangle<float> rodOf(Image const& node) {
    PxRequestPtr<PxImageRODRequest> rod(
        new PxImageRODRequest(PxUPtr<PxImageProtocol const>(node), PxTimeStreamContext(0.0, 0)));
    PxRequestMgr::getInstance().executeRequest(rod.get(), false);
    return rod->getImageROD().getROD();
}

Frame render(Image const& node, int scale = 0) {
    // The region first: its request runs after the edits still queued, which the direct read of
    // the format must not overlap.
    GeRectangle<float> const rod = rodOf(node);
    GeRectangle<int> const r = PxImageProtocol::nominalToPixelized(
        rod, node->getImageFormat().getAspectRatio(), 1.0f / float(1 << scale));
    Frame f{r, std::vector<Color>(std::size_t(r.width()) * std::size_t(r.height()))};
    auto put = [&](auto const& colorAt) {
        for (int y = r.ymin; y < r.ymax; ++y)
            for (int x = r.xmin; x < r.xmax; ++x)
                f.pixels[std::size_t((y - r.ymin) * r.width() + x - r.xmin)] = colorAt(x, y);
    };
    if (scale == 0) {
        HoImage const image = HoRenderer::renderFrame(node, 0.0);
        EXPECT_EQ(image.width, r.width());
        put([&](int x, int y) { return image.getColor(x - r.xmin, r.ymax - 1 - y); });
    } else if (!r.isEmpty()) {
        PxRequestPtr<PxImageMultiTileRequest> tiles(new PxImageMultiTileRequest(
            PxUPtr<PxImageProtocol const>(node), 0, PxTimeInfo(0.0), scale));
        PxRequestMgr::getInstance().executeRequest(tiles.get(), false);
        IxReadGuard const g(PxImageMultiTileRequest::assembleTiles(*tiles->getResults(), r));
        put([&](int x, int y) { return IxPixelUtil::getPixelColor(g, x, y); });
    }
    return f;
}

Color operator*(float w, Color const& c) {
    return {w * c.r, w * c.g, w * c.b, w * c.a};
}
Color operator+(Color const& a, Color const& b) {
    return {a.r + b.r, a.g + b.g, a.b + b.b, a.a + b.a};
}
float distance(Color const& a, Color const& b) {
    return std::max(
        {std::fabs(a.r - b.r), std::fabs(a.g - b.g), std::fabs(a.b - b.b), std::fabs(a.a - b.a)});
}

// The Mitchell-Netravali cubic, B = C = 1/3.
double mitchell(double x) {
    x = std::fabs(x);
    return x < 1.0   ? (7 * x * x * x - 12 * x * x + 16.0 / 3) / 6
           : x < 2.0 ? (-7.0 / 3 * x * x * x + 12 * x * x - 20 * x + 32.0 / 3) / 6
                     : 0.0;
}

// The source read at a continuous position (pixel i covers [i, i + 1)) by a filter.
Color resample(Frame const& src, double x, double y, int filter) {
    if (filter == SdTextureTypes::FILTER_NEAREST)
        return src.at(int(std::floor(x)), int(std::floor(y)));
    double const cx = x - 0.5, cy = y - 0.5;
    int const ix = int(std::floor(cx)), iy = int(std::floor(cy));
    double const fx = cx - ix, fy = cy - iy;
    Color sum{};
    if (filter == SdTextureTypes::FILTER_BILINEAR) {
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i)
                sum = sum + float((i ? fx : 1 - fx) * (j ? fy : 1 - fy)) * src.at(ix + i, iy + j);
        return sum;
    }
    for (int j = -1; j <= 2; ++j)
        for (int i = -1; i <= 2; ++i)
            sum = sum + float(mitchell(i - fx) * mitchell(j - fy)) * src.at(ix + i, iy + j);
    return sum;
}

// The test pattern in pixels of the given width to a height of one.
Image patternOfPixelRatio(int w, int h, int ratio) {
    PxImageFormat const format(
        IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32, Rational(ratio)), Rational(25));
    auto const f = initialised<PxStrongHndl<PxImageFormatProtocol const>>(
        new PxImageFormatNode(PxNode::Init{"format"}, format));
    return initialised<Image>(new HoTestPatternNode(PxNode::Init{"pattern"}, f, constant(w),
                                                    constant(h), constant(CoRgbColorTyped<float>{}),
                                                    constant(0.0)));
}

class TransformTools : public ToolGraphFixture {
protected:
    RCShdPtr<PiToolNode> add(RCShdPtr<PiTool const> const& tool, std::string const& name) {
        return addTool(tool, name);
    }
    // A test pattern fed into a new tool.
    RCShdPtr<PiToolNode> onPattern(RCShdPtr<PiTool const> const& tool, int w, int h) {
        pattern = add(HoTools::testPattern(), "Pattern");
        set(pattern, "Width", w);
        set(pattern, "Height", h);
        return feed(pattern, add(tool, tool->getName()));
    }
    RCShdPtr<PiToolNode> feed(RCShdPtr<PiToolNode> const& from, RCShdPtr<PiToolNode> const& to) {
        connect(from, to);
        return to;
    }

    RCShdPtr<PiToolNode> pattern;
};

} // namespace

// The forward and backward matrices undo each other, the pivot stays where it is, a positive
// angle turns counter-clockwise, and a zero scale stays invertible.
TEST(AffineNodeUtil, MatricesAreInversesAndKeepThePivot) {
    std::mt19937 rng(27);
    std::uniform_real_distribution<double> pos(-500.0, 500.0), angle(-360.0, 360.0),
        scale(0.05, 8.0), sign(-1.0, 1.0);
    for (int i = 0; i < 200; ++i) {
        bool const still = i % 2 == 0; // no translation: the pivot must not move
        double const px = pos(rng), py = pos(rng);
        PiAffineNodeUtil::Params const p(
            {constant(px), constant(py), constant(angle(rng)), constant(still ? 0.0 : pos(rng)),
             constant(still ? 0.0 : pos(rng)), constant(angle(rng)),
             constant(scale(rng) * (sign(rng) < 0 ? -1 : 1)), constant(scale(rng))});
        PxValidityInterval vi = PxValidityInterval::FULL;
        GeAffineMatrix2<double> const f = p.computeForward(PxTimeContext(0.0), vi);
        GeAffineMatrix2<double> const b = p.computeBackward(PxTimeContext(0.0), vi);
        GeAffineMatrix2<double> const fb = f * b, bf = b * f;
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 3; ++c) {
                double const id = r == c ? 1.0 : 0.0;
                EXPECT_NEAR(fb(r, c), id, 1e-9 * (c == 2 ? 500 : 1)) << i;
                EXPECT_NEAR(bf(r, c), id, 1e-9 * (c == 2 ? 500 : 1)) << i;
            }
        if (still) {
            GeVector2<double> const q = f.transformPoint({px, py});
            EXPECT_NEAR(q.x, px, 1e-9) << i;
            EXPECT_NEAR(q.y, py, 1e-9) << i;
        }
    }
    auto zero = constant(0.0);
    PxValidityInterval vi = PxValidityInterval::FULL;
    PiAffineNodeUtil::Params const turn(
        {zero, zero, zero, zero, zero, constant(90.0), constant(1.0), constant(0.0)});
    GeAffineMatrix2<double> const f = turn.computeForward(PxTimeContext(0.0), vi);
    GeVector2<double> const q = f.transformPoint({1.0, 0.0});
    EXPECT_NEAR(q.x, 0.0, 1e-12);
    EXPECT_NEAR(q.y, 1.0, 1e-12);
    EXPECT_DOUBLE_EQ(f(0, 1), -1e-40); // the zero Y scale, turned
    EXPECT_TRUE(std::isfinite(turn.computeBackward(PxTimeContext(0.0), vi)(1, 0)));
}

TEST(AffineNodeUtil, ScalePolicyKeepsAwayFromZero) {
    auto const p = PiRangeAvoidZeroInputPolicy<double>::create(-10.0, 10.0, 1.0, 0.0001);
    struct Case {
        double in, filtered;
        bool settable;
    } const cases[] = {{0.0, 0.0001, false},      {-0.00005, -0.0001, false},
                       {0.00005, 0.0001, false},  {-0.0001, -0.0001, true},
                       {0.5, 0.5, true},          {-20.0, -10.0, false},
                       {std::nan(""), 1.0, false}};
    for (Case const& c : cases) {
        EXPECT_DOUBLE_EQ(p->filterValue(c.in), c.filtered) << c.in;
        EXPECT_EQ(p->canSetValue(c.in), c.settable) << c.in;
    }
    // Ranges that touch the epsilon, and a default inside it.
    for (auto [lo, hi] : {std::pair{-0.00005, 10.0}, {-10.0, 0.0}})
        EXPECT_THROW(PiRangeAvoidZeroInputPolicy<double>(lo, hi, lo + hi > 0 ? 1.0 : -1.0, 0.0001),
                     ExAssertionFailed)
            << lo;
    EXPECT_THROW(PiRangeAvoidZeroInputPolicy<double>(-1.0, 1.0, 0.0, 0.0001), ExBase);
}

// The crop's region for each mode and its edge cases, on an input of 100 x 80 pixels.
TEST(CropNodeUtil, RegionForEachMode) {
    struct Case {
        char const* what;
        int mode;
        std::array<int, 4> values; // the mode's coordinates, in their Params order
        float aspect;
        GeRectangle<float> expected;
    } const cases[] = {
        {"relative, nothing cut", 0, {0, 0, 0, 0}, 1.0f, {-50, 50, -40, 40}},
        {"relative insets", 0, {10, 5, 20, 15}, 1.0f, {-40, 30, -35, 25}},
        {"relative, left and right scaled by the aspect",
         0,
         {10, 0, 5, 0},
         2.0f,
         {-30, 40, -40, 40}},
        {"relative insets that meet", 0, {60, 0, 40, 0}, 1.0f, {}},
        {"relative insets that pass", 0, {0, 50, 0, 31}, 1.0f, {}},
        {"window", 1, {10, 20, -5, 30}, 1.0f, {0, 20, -20, 10}},
        {"window, aspect 2", 1, {10, 20, 0, 30}, 2.0f, {0, 40, -15, 15}},
        {"absolute", 2, {-10, 0, 70, 60}, 1.0f, {-10, 70, 0, 60}},
        {"absolute, left beyond right", 2, {20, 0, 10, 60}, 1.0f, {}},
        {"absolute, bottom above top", 2, {0, 50, 10, 40}, 1.0f, {}},
        {"auto crop: the tool decides", 3, {10, 10, 10, 10}, 1.0f, {}},
    };
    InInitMgr::getInstance().initialize();
    auto zero = constant(0);
    for (Case const& c : cases) {
        std::array<PxStrongHndl<PxAnimValueProtocol<int> const>, 4> v;
        for (int i = 0; i < 4; ++i)
            v[i] = constant(c.values[i]);
        bool const rel = c.mode == 0, win = c.mode == 1, abs = c.mode == 2;
        PiCropNodeUtil::Params const p({constant(c.mode), rel ? v[0] : zero, rel ? v[1] : zero,
                                        rel ? v[2] : zero, rel ? v[3] : zero, abs ? v[0] : zero,
                                        abs ? v[1] : zero, abs ? v[2] : zero, abs ? v[3] : zero,
                                        win ? v[0] : zero, win ? v[1] : zero, win ? v[2] : zero,
                                        win ? v[3] : zero});
        PxImageFormat const format(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32,
                                                 Rational(static_cast<long long>(c.aspect))),
                                   Rational(25));
        GeRectangle<float> const in{-50, 50, -40, 40};
        PxRODResult const r = p.computeImageROD(PxTimeContext(0.0),
                                                PxRODResult(in, PxValidityInterval(-1, 1)), format);
        if (c.expected.isEmpty())
            EXPECT_TRUE(r.getROD().isEmpty()) << c.what;
        else
            EXPECT_EQ(r.getROD(), c.expected) << c.what;
        EXPECT_EQ(r.getValidityInterval(), PxValidityInterval(-1, 1)) << c.what;
        EXPECT_EQ(p.isAutoCrop(), c.mode == 3) << c.what;
    }
    PiToolPolicyDescriptor with, without;
    PiCropNodeUtil::describe(with, PiCropNodeUtil::WITH_AUTO_CROP, PiCropNodeUtil::AUTO_CROP);
    EXPECT_THROW(
        PiCropNodeUtil::describe(without, PiCropNodeUtil::NO_AUTO_CROP, PiCropNodeUtil::AUTO_CROP),
        ExBase);
    InInitMgr::getInstance().finalize();
}

// A pattern with falling alpha turned by 30 degrees about a pivot, halved and moved, against the
// source's pixels resampled in the test at each output pixel's place; also on pixels twice as
// wide as high, where the turn is of the image as shown, not of its grid of pixels.
TEST_F(TransformTools, TransformMatchesDirectResampling) {
    RCShdPtr<PiToolNode> const t = onPattern(HoTools::transform(), 900, 300);
    Frame const src = render(output(pattern));
    Frame const untouched = render(output(t));
    EXPECT_EQ(untouched.region, src.region);
    EXPECT_TRUE(untouched.pixels == src.pixels);
    double const beta = 30.0, s = 0.5, tx = 37.25, ty = -12.5, px = 40.0, py = 10.0;
    set(t, "Rotation", beta);
    set(t, "Scale.X", s);
    set(t, "Scale.Y", s);
    set(t, "Translation.X", tx);
    set(t, "Translation.Y", ty);
    set(t, "Pivot.X", px);
    set(t, "Pivot.Y", py);
    double const rad = beta * std::numbers::pi / 180.0;
    // Output place to source place: undo the move, the turn and the scale about the pivot.
    auto back = [&](double x, double y) {
        double const ux = x - tx - px, uy = y - ty - py;
        double const rx = std::cos(rad) * ux + std::sin(rad) * uy;
        double const ry = -std::sin(rad) * ux + std::cos(rad) * uy;
        return std::pair{rx / s + px, ry / s + py};
    };
    // A half-size proxy: the same mapping between full-size places.
    struct Case {
        int filter;
        int scale;
        float tolerance;
        int pixelRatio = 1;
    } const cases[] = {{SdTextureTypes::FILTER_NEAREST, 0, 1e-6f},
                       {SdTextureTypes::FILTER_BILINEAR, 0, 2e-3f},
                       {SdTextureTypes::FILTER_MITCHELL, 0, 3e-3f},
                       {SdTextureTypes::FILTER_BILINEAR, 1, 2e-3f},
                       {SdTextureTypes::FILTER_NEAREST, 0, 1e-6f, 2},
                       {SdTextureTypes::FILTER_BILINEAR, 0, 2e-3f, 2},
                       {SdTextureTypes::FILTER_MITCHELL, 0, 3e-3f, 2},
                       {SdTextureTypes::FILTER_BILINEAR, 1, 2e-3f, 2}};
    // The same shown size in pixels half as many across, turned by a transform node alike.
    Image const wide = patternOfPixelRatio(450, 300, 2);
    Frame const wideSrc = render(wide);
    auto const wideTransform = [&](int filter) {
        return initialised<Image>(new HoTransformNode(
            PxNode::Init{"transform"}, wide,
            PiAffineNodeUtil::Params({constant(px), constant(py), constant(0.0), constant(tx),
                                      constant(ty), constant(beta), constant(s), constant(s)}),
            constant(filter)));
    };
    for (Case const& c : cases) {
        bool const square = c.pixelRatio == 1;
        set(t, "Filter", c.filter);
        Frame const out = render(square ? output(t) : wideTransform(c.filter), c.scale);
        Frame const& full = square ? src : wideSrc;
        Frame const from = c.scale ? render(square ? output(pattern) : wide, c.scale) : full;
        double const f = 1 << c.scale, a = c.pixelRatio;
        // The frame holds the turned corners of the source.
        for (int cx : {full.region.xmin, full.region.xmax})
            for (int cy : {full.region.ymin, full.region.ymax}) {
                double const ux = (cx * a - px) * s, uy = (cy - py) * s;
                double const x = (std::cos(rad) * ux - std::sin(rad) * uy + px + tx) / f / a;
                double const y = (std::sin(rad) * ux + std::cos(rad) * uy + py + ty) / f;
                EXPECT_TRUE(x >= out.region.xmin && x <= out.region.xmax && y >= out.region.ymin &&
                            y <= out.region.ymax)
                    << c.filter << ": corner " << cx << "," << cy;
            }
        EXPECT_LE(out.region.width(), int(full.region.width() * s * 1.37 / f) + 3) << c.filter;
        int checked = 0, bad = 0;
        for (int y = out.region.ymin; y < out.region.ymax; ++y)
            for (int x = out.region.xmin; x < out.region.xmax; ++x) {
                auto [sx, sy] = back(f * a * (x + 0.5), f * (y + 0.5));
                sx /= f * a;
                sy /= f;
                // Nearest is ambiguous on a pixel's edge: float positions may fall either side.
                if (c.filter == SdTextureTypes::FILTER_NEAREST &&
                    (std::fabs(sx - std::round(sx)) < 1e-3 ||
                     std::fabs(sy - std::round(sy)) < 1e-3))
                    continue;
                ++checked;
                if (distance(out.at(x, y), resample(from, sx, sy, c.filter)) > c.tolerance &&
                    ++bad < 5)
                    ADD_FAILURE() << "filter " << c.filter << " scale " << c.scale << " ratio "
                                  << c.pixelRatio << " at " << x << "," << y;
            }
        EXPECT_GT(checked, 10000 >> (2 * c.scale)) << c.filter;
    }
}

// EWA has no closed form to compare with: on a half-transparent flat colour it must keep the
// premultiplied colour inside and nothing outside, at a turn and an enlargement.
TEST_F(TransformTools, EWAKeepsAFlatPremultipliedColour) {
    RCShdPtr<PiToolNode> const source = add(HoTools::colorSource(), "Flat");
    set(source, "Width", 60);
    set(source, "Height", 40);
    set(source, "Red", 0.8);
    set(source, "Opacity", 0.5);
    RCShdPtr<PiToolNode> const t = feed(source, add(HoTools::transform(), "Transform"));
    set(t, "Filter", int(SdTextureTypes::FILTER_EWA));
    set(t, "Rotation", 30.0);
    set(t, "Scale.X", 2.5);
    set(t, "Scale.Y", 2.5);
    Frame const out = render(output(t));
    Frame const flat = render(output(source));
    Color const inside = flat.at(0, 0);
    ASSERT_NEAR(inside.a, 0.5f, 1e-6f);
    double const rad = 30.0 * std::numbers::pi / 180.0;
    int in = 0;
    for (int y = out.region.ymin; y < out.region.ymax; ++y)
        for (int x = out.region.xmin; x < out.region.xmax; ++x) {
            double const ux = (x + 0.5) / 2.5, uy = (y + 0.5) / 2.5;
            double const sx = std::cos(rad) * ux + std::sin(rad) * uy;
            double const sy = -std::sin(rad) * ux + std::cos(rad) * uy;
            double const edge = std::min({sx - flat.region.xmin, flat.region.xmax - sx,
                                          sy - flat.region.ymin, flat.region.ymax - sy});
            if (edge > 3.0) {
                ++in;
                EXPECT_LT(distance(out.at(x, y), inside), 1e-4f) << x << "," << y;
            } else if (edge < -3.0) {
                EXPECT_LT(distance(out.at(x, y), {}), 1e-6f) << x << "," << y;
            }
        }
    EXPECT_GT(in, 5000);
}

// Each mode keeps what it names: the source's own pixels inside, transparent beyond the source,
// also where the source's fill colour is not (a grade's offset gives it one).
TEST_F(TransformTools, CropKeepsTheSourcesPixels) {
    RCShdPtr<PiToolNode> const c = onPattern(HoTools::crop(), 640, 200);
    RCShdPtr<PiToolNode> const filled = feed(pattern, add(HoTools::grade(), "Filled"));
    for (char const* channel : {"Red", "Green", "Blue", "Alpha"})
        set(filled, std::string("Offset.") + channel, 0.25);
    Frame const src = render(output(pattern));
    Frame const filledSrc = render(output(filled));
    GeRectangle<int> const s = src.region;
    // Each mode's four inputs, in the order of the rows' values.
    char const* const inputs[3][4] = {
        {"Relative.Left", "Relative.Right", "Relative.Bottom", "Relative.Top"},
        {"Window.CenterX", "Window.CenterY", "Window.Width", "Window.Height"},
        {"Absolute.Left", "Absolute.Right", "Absolute.Bottom", "Absolute.Top"}};
    struct Case {
        int mode;
        std::array<int, 4> values;
        GeRectangle<int> expected;
        bool filled = false;
    } const cases[] = {
        {0, {10, 600, 3, 7}, {s.xmin + 10, s.xmax - 600, s.ymin + 3, s.ymax - 7}},
        {1, {250, 0, 200, 250}, {150, 350, -125, 125}},
        {2, {-700, -300, -10, 20}, {-700, -300, -10, 20}},
        {2, {5, 4, -10, 20}, {}},
        {2, {-400, -300, -120, 120}, {-400, -300, -120, 120}, true},
        {1, {0, 0, 800, 300}, {-400, 400, -150, 150}, true},
    };
    for (Case const& k : cases) {
        feed(k.filled ? filled : pattern, c);
        Frame const& from = k.filled ? filledSrc : src;
        set(c, "Crop.Mode", k.mode);
        for (int i = 0; i < 4; ++i)
            set(c, std::string("Crop.") + inputs[k.mode][i], k.values[std::size_t(i)]);
        Frame const out = render(output(c));
        EXPECT_EQ(out.region, k.expected) << k.mode;
        for (int y = out.region.ymin; y < out.region.ymax; ++y)
            for (int x = out.region.xmin; x < out.region.xmax; ++x)
                if (out.at(x, y) != from.at(x, y)) {
                    ADD_FAILURE() << "mode " << k.mode << " filled " << k.filled << " at " << x
                                  << "," << y;
                    return;
                }
    }
}

// Fitting the crop to a rectangle in each mode makes the crop keep that rectangle; changing the
// mode input tells the handlers.
TEST_F(TransformTools, CropFitsToARectangleAndTellsOfModeChanges) {
    RCShdPtr<PiToolNode> const c = onPattern(HoTools::crop(), 300, 200);
    RCShdPtr<PiCropNodeUtil::CropUiControl> const ui(new PiCropNodeUtil::CropUiControl(
        c, PiTimePath(PiPathPtr(), 0.0), c->findOutput("Output"), 0));
    struct Heard final : CbHandler<int> {
        void execute(int const& mode) override { modes.push_back(mode); }
        std::vector<int> modes;
    } heard;
    ui->addModeChangedCb(&heard);
    GeRectangle<float> const r{-100, 40, -60, 70};
    for (int mode : {2, 1, 0}) {
        set(c, "Crop.Mode", mode);
        EXPECT_EQ(ui->getCurrentMode(), mode);
        {
            PiUndoGuard guard(*graph, "Fit");
            ui->fitTo(r);
        }
        EXPECT_EQ(rodOf(output(c)), r) << mode;
    }
    EXPECT_EQ(heard.modes, (std::vector<int>{2, 1, 0}));
}

// The blur against the direct 2D sum of the Gaussian over the source's premultiplied pixels of
// varying alpha, across tile edges and the image's border.
TEST_F(TransformTools, BlurMatchesADirectGaussianSum) {
    RCShdPtr<PiToolNode> const b = onPattern(HoTools::blur(), 1100, 40);
    RCShdPtr<PiToolNode> const convert = add(HoTools::convert(), "Convert");
    {
        PiUndoGuard guard(*graph, "Depth");
        rcCast<PiTypedValue<int>>(convert->findValue("Depth"))->set(8);
    }
    feed(pattern, convert);
    Frame const src = render(output(pattern));
    // Then a half-size proxy, where the kernel is half as wide, and 8-bit pixels, raised to
    // float: nothing is rounded to bytes on the way out.
    struct Case {
        double size;
        int scale;
        bool bytes;
    } const cases[] = {{0.0, 0, false}, {1.0, 0, false}, {3.0, 0, false},
                       {6.5, 0, false}, {6.5, 1, false}, {3.0, 0, true}};
    for (auto [size, scale, bytes] : cases) {
        set(b, "Size", size);
        feed(bytes ? convert : pattern, b);
        Frame const out = render(output(b), scale);
        Frame const from = scale || bytes ? render(output(bytes ? convert : pattern), scale) : src;
        int const full = int(std::ceil(1.5 * size));
        if (scale == 0) {
            EXPECT_EQ(out.region,
                      (GeRectangle<int>{src.region.xmin - full, src.region.xmax + full,
                                        src.region.ymin - full, src.region.ymax + full}));
        }
        double const r = size / (1 << scale);
        int const reach = int(std::ceil(1.5 * r));
        std::vector<double> g(std::size_t(2 * reach + 1));
        double total = 0.0;
        for (int k = -reach; k <= reach; ++k)
            total += g[std::size_t(k + reach)] =
                r > 0 ? std::exp(-double(k * k) / (2.0 * (r / 2) * (r / 2))) : 1.0;
        int bad = 0;
        for (int y = out.region.ymin; y < out.region.ymax; ++y)
            for (int x = out.region.xmin; x < out.region.xmax; x += (y % 3 ? 7 : 1)) {
                Color sum{};
                for (int j = -reach; j <= reach; ++j)
                    for (int i = -reach; i <= reach; ++i)
                        sum = sum + float(g[std::size_t(i + reach)] * g[std::size_t(j + reach)] /
                                          (total * total)) *
                                        from.at(x + i, y + j);
                if (distance(out.at(x, y), sum) > 2e-5f && ++bad < 5)
                    ADD_FAILURE() << "size " << size << " scale " << scale << " bytes " << bytes
                                  << " at " << x << "," << y;
            }
    }
}

namespace {
// Counts the tiles asked of an image.
class Counting final : public PxImageNode {
public:
    Counting(PxNode::Init const& init, Image const& child)
        : PxNode(init), PxImageNode(init, PxNodePtr<PxImageProtocol const>(child)) {}
    PxImageResult getImageResult(PxImageContext const& c) const override {
        ++calls;
        return getPrimary()->getImageResult(c);
    }
    mutable std::atomic<int> calls{0};

protected:
    void init() override {
        PxImageNode::init();
        registerChild(getPrimary());
    }
};
} // namespace

// A tile of the blur asks only the source tiles its kernel reaches, not the whole frame; a size
// that is not a number of pixels is a clear error.
TEST_F(TransformTools, BlurAsksOnlyTheTilesItReaches) {
    RCShdPtr<PiToolNode> const p = add(HoTools::testPattern(), "Pattern");
    int const tile = PxConfig::getTileSizeX();
    set(p, "Width", 4 * tile);
    set(p, "Height", 2 * tile);
    PxStrongHndl<Counting> counting(new Counting(PxNode::Init{"counting"}, output(p)));
    PxNode::init(PxStrongHndl<PxNode>(counting));
    auto blurOf = [&](double size) {
        return initialised<Image>(
            new HoBlurNode(PxNode::Init{"blur"}, Image(counting), constant(size)));
    };
    Frame const out = render(blurOf(2.0));
    // Each output tile needs the source tiles that meet it grown by the reach of 3 pixels.
    GeRectangle<int> const source = PxImageProtocol::convertPixelsToTiles(render(output(p)).region);
    GeRectangle<int> const tiles = PxImageProtocol::convertPixelsToTiles(out.region);
    int needed = 0;
    for (int j = tiles.ymin; j < tiles.ymax; ++j)
        for (int i = tiles.xmin; i < tiles.xmax; ++i) {
            GeRectangle<int> r =
                PxImageProtocol::convertTilesToPixels({i, i + 1, j, j + 1}).intersect(out.region);
            r = {r.xmin - 3, r.xmax + 3, r.ymin - 3, r.ymax + 3};
            needed += PxImageProtocol::convertPixelsToTiles(r).intersect(source).width() *
                      PxImageProtocol::convertPixelsToTiles(r).intersect(source).height();
        }
    EXPECT_EQ(counting->calls.load(), needed);
    EXPECT_LT(needed, tiles.width() * tiles.height() * source.width() * source.height() / 2);
    for (double bad : {-1.0, std::nan(""), 5000.0})
        EXPECT_THROW(render(blurOf(bad)), PxEx::ExInvalidParameter) << bad;
}

// A tool that shows vectors starts from the reset values and goes back to them on reset.
TEST_F(TransformTools, ShowVectorsValuesResetTo16And1) {
    class Vectors final : public HoToolController {
    public:
        Vectors() : helper(*this) { addLifeHook(&helper); }
        void createProcNodes(OutputPublisher&) override {}
        PiShowVectorsControllerHelper helper;
    };
    RCShdPtr<PiToolNode> const n = add(
        testTool({"Vectors"}, PiShowVectorsControllerHelper::describe, [] { return new Vectors; }),
        "V");
    auto& helper = rcDynamicCast<Vectors>(n->getController().lock())->helper;
    EXPECT_EQ(helper.getIntervalValue(), 16);
    EXPECT_EQ(helper.getDisplayScaleValue(), 1.0);
    {
        PiUndoGuard guard(*graph, "Edit");
        rcCast<PiTypedValue<int>>(n->findValue("Interval"))->set(4);
        rcCast<PiTypedValue<double>>(n->findValue("Display Scale"))->set(3.0);
    }
    EXPECT_EQ(helper.getInterval().get(), 4);
    EXPECT_EQ(helper.getDisplayScaleValue(), 3.0);
    {
        PiUndoGuard guard(*graph, "Reset");
        helper.reset();
    }
    EXPECT_EQ(helper.getIntervalValue(), 16);
    EXPECT_EQ(helper.getDisplayScaleValue(), 1.0);
}

// Every pixel tool raises an 8-bit or half source to float once, as its primary input's policy
// says, and gives float; the colour is the source's where the tool leaves it alone.
TEST_F(TransformTools, PixelToolsWorkInFloatWhateverTheSourceDepth) {
    RCShdPtr<PiToolNode> const source = addTool(HoTools::colorSource(), "Source", 40, 20);
    struct Case {
        RCShdPtr<PiTool const> tool;
        char const* input;
    } const cases[] = {{HoTools::gain(), "Source"},      {HoTools::pan(), "Source"},
                       {HoTools::transform(), "Source"}, {HoTools::crop(), "Source"},
                       {HoTools::blur(), "Source"},      {HoTools::grade(), "Source"},
                       {HoTools::over(), "Back"}};
    for (int depth : {int(IxPixelFormat::UINT8), int(IxPixelFormat::FLOAT16)}) {
        {
            PiUndoGuard guard(*graph, "Depth");
            rcCast<PiTypedValue<int>>(source->findValue("Depth"))->set(depth);
        }
        HoImage const in = renderTool(source);
        ASSERT_EQ(int(in.format.getDepth()), depth);
        for (Case const& c : cases) {
            std::string const what = c.tool->getName() + " on " + std::to_string(depth) + " bits";
            RCShdPtr<PiToolNode> const n = add(c.tool, what);
            connect(source, n, c.input);
            auto const policy = rcDynamicCast<PiImageInputPolicy const>(
                rcDynamicCast<PiToolInterface>(n->getController().lock())
                    ->getInputPolicy(*n->findInput(c.input)));
            ASSERT_TRUE(policy) << what;
            EXPECT_EQ(policy->getDepths(), PiImageInputPolicy::FLOAT32_DEPTH) << what;
            HoImage const out = renderTool(n);
            EXPECT_EQ(out.format.getDepth(), IxPixelFormat::FLOAT32) << what;
            EXPECT_LT(distance(out.getColor(out.width / 2, out.height / 2), in.getColor(20, 10)),
                      1e-6f)
                << what;
        }
    }
}
