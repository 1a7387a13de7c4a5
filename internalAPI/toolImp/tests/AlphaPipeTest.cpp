#include "../../procImp/tests/EngineTestSupport.h"

#include "ExBase.h"
#include "IpAlphaFilter2D.h"
#include "IpAlphaKernels.h"
#include "IpAlphaPipeNodes.h"
#include "IpScanlinePipeUtils.h"
#include "IxGuardBase.h"
#include "IxScanlineCache.h"
#include "IxWriteGuardProxy.h"
#include "PmShape2d.h"
#include "PxEx.h"

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using namespace VnTest;
using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
IxPixelFormat const kAlpha(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32);
IxPixelFormat const kRGBA(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);

// An alpha image given as a function, with what it holds outside its tile.
struct Image {
    GeRectangle<int> region;
    float fill;
    std::function<float(int, int)> value;
    float at(int x, int y) const { return region.contains(x, y) ? value(x, y) : fill; }
};

IxTile alphaTile(Image const& im) {
    IxTile t(kAlpha, im.region, {0.0f, 0.0f, 0.0f, im.fill});
    IxWriteGuard g(t);
    for (int y = im.region.ymin; y < im.region.ymax; ++y)
        for (int x = im.region.xmin; x < im.region.xmax; ++x)
            *g.getPixel<float>(x, y) = im.value(x, y);
    return t;
}

// Random blobs with hard edges: dilation and distances have something to find.
Image blobs(GeRectangle<int> region, float fill, unsigned seed) {
    auto cells = std::make_shared<std::vector<float>>();
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(0.0f, 1.0f);
    for (int i = 0; i < 64 * 64; ++i)
        cells->push_back(d(rng) < 0.3f ? 1.0f : d(rng) * 0.4f);
    return {region, fill, [cells](int x, int y) {
                return (*cells)[static_cast<std::size_t>(((y & 63) * 64) + ((x * 7 / 3) & 63))];
            }};
}

// Runs pipe (over an alpha source) from src into a new tile over dst, or over target when given.
IxTile run(IpScanlinePipePtr const& source, IpScanlinePipePtr const& pipe, IxTile const& src,
           GeRectangle<int> const& dst, GeRectangle<int>* srcRegion = nullptr,
           GeRectangle<int> const* target = nullptr) {
    (void)source;
    IxTile out(kAlpha, target ? *target : dst, {});
    IxWriteGuard g(out);
    for (int y = out.getPixelRegion().ymin; y < out.getPixelRegion().ymax; ++y)
        for (int x = out.getPixelRegion().xmin; x < out.getPixelRegion().xmax; ++x)
            *g.getPixel<float>(x, y) = 0.0f;
    RCShdPtr<IpDestNode> const dest =
        IpScanlinePipeUtils::createAlphaDest(pipe, IxPixelFormat::ALPHA, dst, srcRegion);
    dest->process(g, {IxReadGuard(src)});
    return g.getTile();
}

float pixel(IxTile const& t, int x, int y) {
    return *IxReadGuard(t).getPixel<float>(x, y);
}

std::string reasonOf(std::function<void()> const& f) {
    try {
        f();
    } catch (ExBase const& e) {
        return e.getReason();
    }
    return "(nothing raised)";
}

// The graph under a node, as text: Name[element](inputs...).
std::string shape(IpScanlinePipe const& p) {
    std::string s = p.getName();
    if (auto* d = dynamic_cast<IpDilate const*>(&p))
        s += "[" + std::to_string(d->getElement()) + "]";
    if (p.getNbInputs() == 0)
        return s;
    s += "(";
    for (int i = 0; i < p.getNbInputs(); ++i)
        s += (i ? "," : "") + shape(*p.getInput(i));
    return s + ")";
}

} // namespace

using AlphaPipes = EngineTest;

TEST_F(AlphaPipes, BothFeathersEqualTheConvolutionOfTheGaussian) {
    // A destination that straddles the source tile, sizes not multiples of 32: the filter reads
    // the fill colour beyond the tile.
    Image const im{{0, 45, 0, 37}, 0.25f, [](int x, int y) {
                       return std::sin(0.37f * x) * std::cos(0.21f * y * y);
                   }};
    IxTile const src = alphaTile(im);
    GeRectangle<int> const dst(-4, 43, 3, 40);
    // The feather's columns land in the target when it holds the region, and are copied there
    // when it holds only part of it.
    GeRectangle<int> const targets[] = {dst, {-9, 50, 0, 41}, {-2, 43, 3, 38}};
    for (auto [rx, ry, target] :
         {std::tuple{3.0f, 5.5f, targets[0]}, std::tuple{1.0f, 0.0f, targets[1]},
          std::tuple{12.0f, 2.0f, targets[2]}, std::tuple{2.0f, 2.0f, targets[1]},
          std::tuple{2.0f, 2.0f, targets[2]}}) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        GeRectangle<int> srcRegion;
        IxTile const out =
            run(s, IpScanlinePipeUtils::createBlurAlpha(s, rx, ry), src, dst, &srcRegion, &target);
        // The older tile filter, over the same region.
        IxTile const tiled(kAlpha, dst, {});
        IpFeatherFilter2D(rx, ry).filter({IxReadGuard(src)}, IxWriteGuard(tiled), dst);

        // The feather of radius r: a Gaussian of sigma r / 2 over ceil(1.5 r) pixels each side,
        // normalised.
        auto taps = [](float r) {
            int const h = static_cast<int>(std::ceil(1.5 * r));
            std::vector<double> w(static_cast<std::size_t>(2 * h + 1), 1.0);
            double sum = 0.0;
            for (int k = -h; k <= h && h > 0; ++k)
                sum += w[static_cast<std::size_t>(k + h)] = std::exp(-2.0 * k * k / (r * r));
            for (double& v : w)
                v /= h > 0 ? sum : 1.0;
            return w;
        };
        std::vector<double> const kx = taps(rx);
        std::vector<double> const ky = taps(ry);
        int const hx = static_cast<int>(kx.size() / 2);
        int const hy = static_cast<int>(ky.size() / 2);
        EXPECT_EQ(srcRegion,
                  GeRectangle<int>(dst.xmin - hx, dst.xmax + hx, dst.ymin - hy, dst.ymax + hy));
        for (int y = target.ymin; y < target.ymax; ++y)
            for (int x = target.xmin; x < target.xmax; ++x) {
                if (!dst.contains(x, y)) {
                    ASSERT_EQ(pixel(out, x, y), 0.0f) << "outside at " << x << "," << y;
                    continue;
                }
                double sum = 0.0;
                for (int j = 0; j <= 2 * hy; ++j)
                    for (int i = 0; i <= 2 * hx; ++i)
                        sum += ky[static_cast<std::size_t>(j)] * kx[static_cast<std::size_t>(i)] *
                               im.at(x - hx + i, y - hy + j);
                ASSERT_NEAR(pixel(out, x, y), sum, 2e-5)
                    << rx << "," << ry << " at " << x << "," << y;
                ASSERT_NEAR(pixel(tiled, x, y), sum, 2e-5)
                    << "tiles " << rx << "," << ry << " at " << x << "," << y;
            }
        EXPECT_EQ(out.getFillColor().a, 0.25f);
    }
}

TEST_F(AlphaPipes, ColourTilesKeepTheirColourAndGetTheNewAlpha) {
    IxTile src(kRGBA, {0, 9, 0, 7}, {0.1f, 0.2f, 0.3f, 0.0f});
    {
        IxWriteGuard g(src);
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 9; ++x)
                *g.getPixel<Color>(x, y) = {float(x), float(y), 2.0f,
                                            x == 4 && y == 3 ? 1.0f : 0.0f};
    }
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::RGBA);
    EXPECT_EQ(shape(*s), "ExtractAlpha(Source)");
    IxTile out(kRGBA, {0, 9, 0, 7}, {});
    IxWriteGuard g(out);
    IpScanlinePipeUtils::createAlphaDest(IpDilate::create(s, IpDilate::BOX, 1.0f, 2.0f),
                                         IxPixelFormat::RGBA, {0, 9, 0, 7}, nullptr)
        ->process(g, {IxReadGuard(src)});
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            Color const c = *g.getPixel<Color>(x, y);
            EXPECT_EQ(c.r, float(x));
            EXPECT_EQ(c.g, float(y));
            EXPECT_EQ(c.a, std::abs(x - 4) <= 1 && std::abs(y - 3) <= 2 ? 1.0f : 0.0f)
                << x << "," << y;
        }
    EXPECT_EQ(g.getTile().getFillColor(), (Color{0.1f, 0.2f, 0.3f, 0.0f}));
}

// Each pixel is the extreme over the element around it. An element that reaches past the
// image from every pixel asked takes in all of it and the fill: any amount from there on,
// infinite ones too, gives the same pixels, worked out with the amount cut to that reach.
TEST_F(AlphaPipes, DilationAndErosionEqualTheExtremeOverTheElement) {
    double const inf = std::numeric_limits<double>::infinity();
    // Past 50 pixels every pixel of the element is the fill, and so are those between 45 and 50
    // in the same row or column: looking that far is enough.
    constexpr int kFar = 50;
    auto extreme = [&](Image const& im, int element, int x, int y, double rx, double ry,
                       bool erode) {
        float e = erode ? 1e9f : -1e9f;
        int const reachY = int(std::min<double>(ry, kFar));
        int const reachX = int(std::min<double>(rx, kFar));
        for (int dy = -reachY; dy <= reachY; ++dy)
            for (int dx = -reachX; dx <= reachX; ++dx) {
                double const qx = rx > 0 ? dx / rx : 0.0;
                double const qy = ry > 0 ? dy / ry : 0.0;
                if (element == IpDilate::DISC && qx * qx + qy * qy > 1.0 + 1e-9)
                    continue;
                float const v = im.at(x + dx, y + dy);
                e = erode ? std::min(e, v) : std::max(e, v);
            }
        return e;
    };
    struct Case {
        int element;
        float x;
        float y;
    };
    // Over the tile asked, the reach that covers the image from every pixel is 44 across and 31
    // down; from its centre pixel alone, 21 and 15. A fill beyond every value of the image tells
    // whether the element took in a pixel past it. A source not told the image's region works
    // with the amounts as they are.
    struct Setup {
        GeRectangle<int> dst;
        float fill;
        bool imageKnown;
    };
    for (Setup const& setup :
         {Setup{{-3, 44, -2, 31}, 0.5f, false}, Setup{{-3, 44, -2, 31}, 0.5f, true},
          Setup{{20, 21, 14, 15}, 1.5f, true}, Setup{{20, 21, 14, 15}, -0.5f, true}})
        for (Case c :
             {Case{IpDilate::BOX, 3, 2}, Case{IpDilate::DISC, 3, 2}, Case{IpDilate::DISC, 7.9f, 5},
              Case{IpDilate::DISC, 0, 4}, Case{IpDilate::BOX, 5, 0}, Case{IpDilate::DISC, -4, -3},
              Case{IpDilate::BOX, -2, -6}, Case{IpDilate::DISC, 1, 1}, Case{IpDilate::BOX, 44, 31},
              Case{IpDilate::BOX, 45, 32}, Case{IpDilate::DISC, 45, 32},
              Case{IpDilate::DISC, 90, 3}, Case{IpDilate::BOX, float(inf), 2},
              Case{IpDilate::DISC, 1e6f, 1e6f}, Case{IpDilate::DISC, float(inf), float(inf)},
              Case{IpDilate::BOX, -1e30f, -1}, Case{IpDilate::DISC, -float(inf), -float(inf)},
              Case{IpDilate::DISC, 3, float(inf)}}) {
            bool const huge = std::fabs(c.x) > 1024 || std::fabs(c.y) > 1024;
            if (huge && !setup.imageKnown)
                continue; // refused: see the limits below
            Image const im = blobs({0, 41, 0, 29}, setup.fill, 5);
            IxTile const src = alphaTile(im);
            GeRectangle<int> const dst = setup.dst;
            IpScanlinePipePtr const s =
                IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
            if (setup.imageKnown)
                s->getAllInputs()[0]->setImageRegion(im.region);
            IxTile const out = run(s, IpDilate::create(s, c.element, c.x, c.y), src, dst);
            bool const erode = c.x < 0 || c.y < 0;
            double const rx = std::isinf(c.x) ? inf : std::floor(std::fabs(double(c.x)));
            double const ry = std::isinf(c.y) ? inf : std::floor(std::fabs(double(c.y)));
            for (int y = dst.ymin; y < dst.ymax; ++y)
                for (int x = dst.xmin; x < dst.xmax; ++x)
                    ASSERT_EQ(pixel(out, x, y), extreme(im, c.element, x, y, rx, ry, erode))
                        << c.element << " " << c.x << "," << c.y << " fill " << setup.fill << " at "
                        << x << "," << y;
        }
    Image const im = blobs({0, 41, 0, 29}, 0.5f, 5);
    IxTile const src = alphaTile(im);
    GeRectangle<int> const dst(-3, 44, -2, 31);
    // Mixed signs: grown across, then shrunk down; the fill (a constant) stays.
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    IpScanlinePipePtr const mixed = IpDilate::create(s, IpDilate::BOX, 2, -1);
    EXPECT_EQ(shape(*mixed), "Erode[1](Dilate[1](Source))");
    IxTile const out = run(s, mixed, src, dst);
    for (int y = dst.ymin; y < dst.ymax; ++y)
        for (int x = dst.xmin; x < dst.xmax; ++x) {
            float e = 1e9f;
            for (int dy = -1; dy <= 1; ++dy) {
                float m = -1e9f;
                for (int dx = -2; dx <= 2; ++dx)
                    m = std::max(m, im.at(x + dx, y + dy));
                e = std::min(e, m);
            }
            ASSERT_EQ(pixel(out, x, y), e) << x << "," << y;
        }
    EXPECT_EQ(out.getFillColor().a, 0.5f);
}

TEST_F(AlphaPipes, BranchesOfDifferentDelaysMeetRowForRow) {
    // Max of a raw, a dilated and a blurred branch of one source, against each branch alone: the
    // quick branch keeps its rows until the slow one catches up.
    Image const im = blobs({0, 30, 0, 26}, 0.0f, 9);
    IxTile const src = alphaTile(im);
    GeRectangle<int> const dst(2, 28, 1, 25);
    auto build = [](IpScanlinePipePtr const& s, int which) -> IpScanlinePipePtr {
        if (which == 0)
            return IpDilate::create(s, IpDilate::DISC, 2, 3);
        if (which == 1)
            return IpScanlinePipeUtils::createBlurAlpha(s, 2, 4);
        return IpScanlinePipeUtils::createInvertAlpha(s);
    };
    IxTile parts[3];
    for (int i = 0; i < 3; ++i) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        parts[i] = run(s, build(s, i), src, dst);
    }
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    IpScanlinePipePtr const all = IpScanlinePipeUtils::createMaxAlpha(
        IpScanlinePipeUtils::createMaxAlpha(build(s, 2), build(s, 1)), build(s, 0));
    IxTile const out = run(s, all, src, dst);
    for (int y = dst.ymin; y < dst.ymax; ++y)
        for (int x = dst.xmin; x < dst.xmax; ++x)
            ASSERT_EQ(pixel(out, x, y), std::max({pixel(parts[0], x, y), pixel(parts[1], x, y),
                                                  pixel(parts[2], x, y)}))
                << x << "," << y;
    EXPECT_EQ(out.getFillColor().a, 1.0f); // max of 0, blur(0) and 1 - 0
}

TEST_F(AlphaPipes, DistanceRampAndFillMatchBruteForce) {
    Image const im = blobs({0, 33, 0, 21}, 0.0f, 13);
    IxTile const src = alphaTile(im);
    GeRectangle<int> const dst(-2, 35, 0, 21);
    for (auto [ix, iy] : {std::pair{4, 3}, std::pair{0, 5}, std::pair{6, 0}}) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IxTile const out = run(s, IpDistTransform::create(s, ix, iy, 1.0f, 1.0f), src, dst);
        for (int y = dst.ymin; y < dst.ymax; ++y)
            for (int x = dst.xmin; x < dst.xmax; ++x) {
                double best = 1e30;
                for (int dy = -iy; dy <= iy; ++dy)
                    for (int dx = -ix; dx <= ix; ++dx)
                        if (im.at(x + dx, y + dy) >= 0.5f) {
                            double const qx = ix ? double(dx) / ix : 0.0;
                            double const qy = iy ? double(dy) / iy : 0.0;
                            best = std::min(best, std::sqrt(qx * qx + qy * qy));
                        }
                ASSERT_NEAR(pixel(out, x, y), std::max(0.0, 1.0 - best), 1e-5)
                    << ix << "," << iy << " at " << x << "," << y;
            }
    }
    // Filling closes a hole smaller than the element and leaves the outline.
    Image const holed{{0, 20, 0, 20}, 0.0f, [](int x, int y) {
                          bool const inside = x >= 5 && x < 15 && y >= 5 && y < 15;
                          return inside && !(x == 9 && (y == 9 || y == 10)) ? 1.0f : 0.0f;
                      }};
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    IxTile const filled = run(s, IpFillAlpha::create(s, 2, 2), alphaTile(holed), holed.region);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x)
            ASSERT_EQ(pixel(filled, x, y), x >= 5 && x < 15 && y >= 5 && y < 15 ? 1.0f : 0.0f)
                << x << "," << y;
}

TEST_F(AlphaPipes, EdgeGraphHasTheShapeItsSettingsAsk) {
    auto graph = [](bool difference, IpDilate::StructuringElements e, float lowX, float lowY,
                    float highX, float highY, float blurLow, float blurHigh, bool invert = false) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IpScanlinePipePtr const g = IpScanlinePipeUtils::createEdgeProcessingGraph(
            s, difference, e, lowX, lowY, highX, highY, blurLow, blurLow, blurHigh, blurHigh,
            invert, nullptr, 0);
        return shape(*g);
    };
    using D = IpDilate;
    // Blurs of 35 and 45 with the disc: the first dilation blends disc and box, the second is a
    // box.
    EXPECT_EQ(graph(true, D::DISC, -2, -2, 4, 4, 35, 45),
              "DiffAlpha(BlurAlpha(Dilate[1](Source)),BlurAlpha(BlendAlpha(Erode[0](Source),Erode["
              "1](Source))))");
    // Blurs of 30 or less keep the disc; the box element makes boxes whatever the blurs.
    EXPECT_EQ(graph(true, D::DISC, -2, -2, 4, 4, 30, 0),
              "DiffAlpha(Dilate[0](Source),BlurAlpha(Erode[0](Source)))");
    EXPECT_EQ(graph(true, D::BOX, -2, -2, 4, 4, 0, 0),
              "DiffAlpha(Dilate[1](Source),Erode[1](Source))");
    // Opposite signs on one side: both grow.
    EXPECT_EQ(graph(false, D::BOX, -1, 3, 5, 5, 0, 0),
              "AverageAlpha(Dilate[1](Source),Dilate[1](Source))");
    // Amounts under 0.001 make no dilation; equal settings without difference make one branch.
    EXPECT_EQ(graph(true, D::DISC, 0.0005f, -0.0005f, 0, 0, 0, 0), "DiffAlpha(Source,Source)");
    EXPECT_EQ(graph(false, D::DISC, 3, 3, 3, 3, 2, 2), "BlurAlpha(Dilate[0](Source))");
    EXPECT_EQ(graph(false, D::DISC, 3, 3, 3, 3, 2, 2, true),
              "InvertAlpha(BlurAlpha(Dilate[0](Source)))");
    // Equal amounts with difference: the second branch reuses the first's nodes.
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    IpScanlinePipePtr const g = IpScanlinePipeUtils::createEdgeProcessingGraph(
        s, true, D::DISC, 3, 3, 3, 3, 2, 2, 2, 2, false, nullptr, 0);
    EXPECT_EQ(g->getInput(0).get(), g->getInput(1).get());
    // Interpolated shapes blend the disc and the box dilations.
    EXPECT_EQ(shape(*IpScanlinePipeUtils::createDilateNode(s, 0.25f, 2, 2)),
              "BlendAlpha(Dilate[0](Source),Dilate[1](Source))");
    EXPECT_EQ(shape(*IpScanlinePipeUtils::createDilateNode(s, -1.0f, 2, 2)), "Dilate[0](Source)");
    EXPECT_EQ(shape(*IpScanlinePipeUtils::createDilateNode(s, 1.0f, 2, 2)), "Dilate[1](Source)");
}

TEST_F(AlphaPipes, EdgeGraphPixelsAndFillAreThoseOfItsOperations) {
    // Box elements, no feather: the band between a grown and a shrunk matte, by brute force.
    Image const im = blobs({0, 23, 0, 17}, 0.75f, 8);
    IxTile const src = alphaTile(im);
    GeRectangle<int> const dst(-3, 26, -2, 19);
    auto extreme = [&](int x, int y, int rx, int ry, bool grow) {
        float e = grow ? -1e9f : 1e9f;
        for (int dy = -ry; dy <= ry; ++dy)
            for (int dx = -rx; dx <= rx; ++dx)
                e = grow ? std::max(e, im.at(x + dx, y + dy)) : std::min(e, im.at(x + dx, y + dy));
        return e;
    };
    struct Case {
        bool difference;
        bool invert;
        float fill; // of the result: the operations on the source's 0.75
    };
    for (Case c : {Case{true, true, 1.0f}, Case{false, false, 0.75f}, Case{true, false, 0.0f}}) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IxTile const out =
            run(s,
                IpScanlinePipeUtils::createEdgeProcessingGraph(
                    s, c.difference, IpDilate::BOX, 2, 1, -1, -1, 0, 0, 0, 0, c.invert, nullptr, 0),
                src, dst);
        for (int y = dst.ymin; y < dst.ymax; ++y)
            for (int x = dst.xmin; x < dst.xmax; ++x) {
                float const grown = extreme(x, y, 2, 1, true);
                float const shrunk = extreme(x, y, 1, 1, false);
                float v = c.difference ? std::max(grown - shrunk, 0.0f) : (grown + shrunk) * 0.5f;
                if (c.invert)
                    v = 1.0f - v;
                ASSERT_EQ(pixel(out, x, y), v) << c.difference << c.invert << " " << x << "," << y;
            }
        EXPECT_EQ(out.getFillColor().a, c.fill);
    }
}

TEST_F(AlphaPipes, EdgeGraphTakesANullOrIdentityCurveAndRefusesOthers) {
    using Points = Vector<GePoint<float>>;
    struct Case {
        Points points;
        bool closed;
        bool identity;
    };
    Case const cases[] = {
        {{{0, 0}, {1, 1}}, false, true},
        {{{-1, -1}, {0.25f, 0.25f}, {2, 2}}, false, true},
        {{{0, 0}, {1, 0.5f}}, false, false},
        {{{0, 0}, {0.5f, 0.5f}}, false, false}, // stops short of 1
        {{{0, 0}, {1, 1}}, true, false},
        {{}, false, false},
    };
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    auto graph = [&](RCPvtEngPtr<PmShape2d> const& curve) {
        return IpScanlinePipeUtils::createEdgeProcessingGraph(s, true, IpDilate::BOX, 1, 1, 2, 2, 0,
                                                              0, 0, 0, true, curve, 256);
    };
    std::string const plain = shape(*graph(nullptr));
    EXPECT_EQ(plain, "InvertAlpha(DiffAlpha(Dilate[1](Source),Dilate[1](Source)))");
    for (Case const& c : cases) {
        RCPvtEngPtr<PmShape2d> const curve(new PmShape2d(c.points, c.closed));
        if (c.identity)
            EXPECT_EQ(shape(*graph(curve)), plain) << c.points.size() << " points";
        else
            EXPECT_EQ(reasonOf([&] { graph(curve); }),
                      "Edge processing takes only the identity alpha curve until curve look-up "
                      "tables exist.")
                << c.points.size() << " points";
    }
}

// Graphs that cannot be run, and sizes that are not numbers or beyond what is worked with, are
// refused with a reason.
TEST_F(AlphaPipes, BadGraphsAndSizesAreRefused) {
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    IpScanlinePipePtr const t = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const inf = std::numeric_limits<float>::infinity();
    // Laid out over a tile of an image whose extent the source does not know, or a wide one.
    auto layOut = [](IpScanlinePipePtr const& source, IpScanlinePipePtr const& pipe,
                     GeRectangle<int> image = {}) {
        if (!image.isEmpty())
            source->getAllInputs()[0]->setImageRegion(image);
        IpScanlinePipeUtils::createAlphaDest(pipe, IxPixelFormat::ALPHA, {0, 64, 0, 64}, nullptr);
    };
    struct Case {
        std::function<void()> make;
        char const* reason; // the part of the message that matters
    };
    Case const cases[] = {
        {[&] { IpDilate::create(s, IpDilate::DISC, nan, 2); }, "amounts must be numbers"},
        {[&] { IpDilate::create(s, IpDilate::BOX, 2, -nan); }, "amounts must be numbers"},
        {[&] { layOut(s, IpDilate::create(s, IpDilate::DISC, 1e6f, 1e6f)); },
         "at most 1024 are worked with"},
        {[&] { layOut(s, IpDilate::create(s, IpDilate::DISC, 3, -inf)); },
         "erosion of 0 by unbounded pixels"},
        {[&] { layOut(s, IpDilate::create(s, IpDilate::BOX, 1025, 0)); }, "reach 1025 by 0"},
        {[&] {
             layOut(s, IpFillAlpha::create(s, 5000, 5), {0, 8000, 0, 64});
         },
         "reach 5000 by 5"},
        {[&] { layOut(s, IpScanlinePipeUtils::createDilateNode(s, 0.5f, 2000, 1)); },
         "at most 1024"},
        {[&] { IpDistTransform::create(s, 3, -2000, 1, 1); }, "at most 1024 pixels"},
        {[&] { IpScanlinePipeUtils::createBlurAlpha(s, 1e6f, 1); }, "at most 1024 pixels"},
        {[&] { IpScanlinePipeUtils::createBlurAlpha(s, inf, 1); }, "at most 1024 pixels"},
        {[&] { IpScanlinePipeUtils::createBlurAlpha(s, 1, nan); }, "radii must be numbers"},
        {[&] { IpScanlinePipeUtils::createLUTAlpha(s, 0.0f, 1.0f, {1.0f}); },
         "An alpha look-up table needs at least 2 entries; it has 1."},
        {[&] { IpScanlinePipeUtils::createLUTAlpha(s, 0.0f, 1.0f, {}); },
         "An alpha look-up table needs at least 2 entries; it has 0."},
        {[] { IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::Comps(2)); },
         "inputComps == IxPixelFormat::ALPHA"},
        {[&] {
             IpScanlinePipeUtils::createAlphaDest(IpScanlinePipeUtils::createMaxAlpha(s, t),
                                                  IxPixelFormat::ALPHA, {0, 4, 0, 4}, nullptr);
         },
         "nInputs == 1"},
        {[&] { IpScanlinePipeUtils::createDilateNode(s, NAN, 1.0f, 1.0f); },
         "0.0f < shapeInterpolation && shapeInterpolation < 1.0f"},
        {[&] {
             IpScanlinePipeUtils::createEdgeProcessingGraph(s, true,
                                                            IpDilate::StructuringElements(2), 1, 1,
                                                            2, 2, 0, 0, 0, 0, false, nullptr, 0);
         },
         "element == IpDilate::BOX"},
    };
    for (Case const& c : cases) {
        std::string const reason = reasonOf(c.make);
        EXPECT_NE(reason.find(c.reason), std::string::npos) << reason;
    }
    // The limits themselves are taken.
    EXPECT_EQ(reasonOf([&] { layOut(t, IpDilate::create(t, IpDilate::DISC, -1024, -1024)); }),
              "(nothing raised)");
    EXPECT_EQ(shape(*IpScanlinePipeUtils::createBlurAlpha(s, 1024, 0)), "BlurAlpha(Source)");
}

TEST_F(AlphaPipes, LookUpTablesMapAlpha) {
    Image const im{{0, 5, 0, 1}, 0.5f, [](int x, int) {
                       return 0.25f * float(x);
                   }};
    IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
    // Over [0, 1] with 5 entries: v = a * 3.
    IxTile const out =
        run(s, IpScanlinePipeUtils::createLUTAlpha(s, 0.0f, 1.0f, {0.0f, 0.5f, 0.6f, 1.0f, 7.0f}),
            alphaTile(im), im.region);
    float const expected[] = {0.0f, 0.375f, 0.55f, 0.7f, 1.0f};
    for (int x = 0; x < 5; ++x)
        EXPECT_FLOAT_EQ(pixel(out, x, 0), expected[x]) << x;
    EXPECT_FLOAT_EQ(out.getFillColor().a, 0.55f);

    IxTile const two = run(s, IpScanlinePipeUtils::createLUTAlpha(s, 0.2f, 0.2f, {0.3f, 0.9f}),
                           alphaTile(im), im.region);
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(pixel(two, x, 0), 0.3f);
}

namespace {
// The mean of five rows, read from the input's kept rows while computing (not on arrival).
class VerticalMean final : public IpScanlinePipe1In<float> {
public:
    explicit VerticalMean(IpScanlinePipePtr const& in) : IpScanlinePipe1In(in, 0, 2) {}
    char const* getName() const override { return "VerticalMean"; }

protected:
    void computeScanline(int y, IxScanline<float>& out) override {
        for (int x = out.getX0(); x < out.getX1(); ++x) {
            float sum = 0.0f;
            for (int dy = -2; dy <= 2; ++dy)
                sum += getInputScanline(y + dy)[x];
            out[x] = sum / 5.0f;
        }
    }
};
} // namespace

TEST_F(AlphaPipes, ResultsWrittenOverTheirSourceAreThoseWrittenElsewhere) {
    // Inside the tile, so that rows could be read from it in place; the mean reads each row
    // after the result's row of the same index is written, and the feather writes its columns
    // straight into the tile.
    Image const im = blobs({0, 30, 0, 20}, 0.0f, 21);
    GeRectangle<int> const inner(4, 26, 3, 17);
    std::function<IpScanlinePipePtr(IpScanlinePipePtr const&)> const pipes[] = {
        [](IpScanlinePipePtr const& s) { return IpScanlinePipePtr(new VerticalMean(s)); },
        [](IpScanlinePipePtr const& s) {
            return IpScanlinePipeUtils::createBlurAlpha(s, 2, 2);
        }};
    for (auto const& pipe : pipes) {
        IpScanlinePipePtr s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IxTile const apart = run(s, pipe(s), alphaTile(im), inner);

        IxTile const same = alphaTile(im);
        s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IxWriteGuard g(same);
        IpScanlinePipeUtils::createAlphaDest(pipe(s), IxPixelFormat::ALPHA, inner, nullptr)
            ->process(g, {IxReadGuard(same)});
        for (int y = inner.ymin; y < inner.ymax; ++y)
            for (int x = inner.xmin; x < inner.xmax; ++x)
                ASSERT_EQ(*g.getPixel<float>(x, y), pixel(apart, x, y)) << x << "," << y;
    }
}

namespace {
// Copies its input, and cancels the request running the graph after the given row.
class CancelAfter final : public IpScanlinePipe1In<float> {
public:
    CancelAfter(IpScanlinePipePtr const& in, int row) : IpScanlinePipe1In(in, 0, 0), _row(row) {}
    char const* getName() const override { return "CancelAfter"; }
    int rows = 0;
    PxRequest* request = nullptr;

protected:
    void computeScanline(int y, IxScanline<float>& out) override {
        for (int x = out.getX0(); x < out.getX1(); ++x)
            out[x] = getInputScanline(y)[x];
        ++rows;
        if (y == _row)
            engine().cancelRequest(request);
    }

private:
    int _row;
};
} // namespace

namespace {
// Stands between the feather and the engine's scanline cache: counts flushes, and cancels the
// request running the graph when the given column is handed out.
struct CacheSpy {
    using Cache = IxScanlineCache<float>;
    static inline Cache::Factory real = nullptr;
    static inline int flushes = 0;
    static inline int columns = 0;
    static inline int cancelAt = -1;
    static inline PxRequest* request = nullptr;

    struct Imp final : Cache::Imp {
        Cache::Imp* inner;
        explicit Imp(Cache::Imp* i) : inner(i) {}
        ~Imp() noexcept(false) override { delete inner; }
        void init(GeRectangle<int> const& d, GeRectangle<int> const& s) override {
            inner->init(d, s);
        }
        void initOver(GeRectangle<int> const& d, GeRectangle<int> const& s,
                      IxWriteGuard const& t) override {
            inner->initOver(d, s, t);
        }
        IxWriteGuardProxy const& getHorizontalBuffer() override {
            return inner->getHorizontalBuffer();
        }
        IxWriteGuard getVerticalBuffer() override { return inner->getVerticalBuffer(); }
        bool hasNext() const override { return inner->hasNext(); }
        void getNext(IxScanline<float>*& d, IxScanline<float>*& s) override {
            inner->getNext(d, s);
            if (columns++ == cancelAt)
                engine().cancelRequest(request);
        }
        void flush() override {
            ++flushes;
            inner->flush();
        }
        void discard() noexcept override { inner->discard(); }
    };
    static Cache::Imp* create(GeRectangle<int> const& d, GeRectangle<int> const& s) {
        return new Imp(real(d, s));
    }
    CacheSpy() {
        real = Cache::getImplementationFactory();
        Cache::setImplementationFactory(&create);
        flushes = columns = 0;
    }
    ~CacheSpy() { Cache::setImplementationFactory(real); }
};

// Throws from the steps it is told to, as a faulty node would.
class Failing final : public IpScanlinePipe1In<float> {
public:
    Failing(IpScanlinePipePtr const& in, bool inTick, bool inFinish)
        : IpScanlinePipe1In(in, 0, 0), _inTick(inTick), _inFinish(inFinish) {}
    char const* getName() const override { return "Failing"; }
    void tick(int t) override {
        if (_inTick)
            VN_THROW_MSG(ExBase, "tick failed");
        IpScanlinePipe1In<float>::tick(t);
    }
    void finishProcessing() override {
        IpScanlinePipe1In<float>::finishProcessing();
        if (_inFinish)
            VN_THROW_MSG(ExBase, "finish failed");
    }

protected:
    void computeScanline(int y, IxScanline<float>& out) override {
        for (int x = out.getX0(); x < out.getX1(); ++x)
            out[x] = getInputScanline(y)[x];
    }

private:
    bool _inTick;
    bool _inFinish;
};
} // namespace

TEST_F(AlphaPipes, ACancelledFeatherNeitherFlushesNorWrites) {
    Image const im = blobs({0, 40, 0, 30}, 0.0f, 3);
    IxTile const src = alphaTile(im);
    struct Case {
        int cancelRow;    // in the rows coming in, or -100
        int cancelColumn; // in the columns handed out, or -1
        int flushes;
        int rows; // the source rows made before the stop, or -1 when not told
    };
    // The feather reads 3 rows above and below the region: rows -3 to 32, or to 6 when the check
    // stops it there.
    Case const cases[] = {{6, -1, 0, 10},
                          {29 + 3, -1, 0, 36},
                          {-100, 0, 0, -1},
                          {-100, 17, 0, -1},
                          {-100, -1, 1, 36}};
    for (Case const& c : cases) {
        CacheSpy const spy;
        CacheSpy::cancelAt = c.cancelColumn;
        IxTile const out(kAlpha, im.region, {0, 0, 0, 0.5f});
        IxWriteGuard(out).getPixel<float>(0, 0)[0] = -1.0f;
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        RCShdPtr<CancelAfter> const cancel(new CancelAfter(s, c.cancelRow));
        RCShdPtr<IpDestNode> dest =
            IpScanlinePipeUtils::createAlphaDest(IpScanlinePipeUtils::createBlurAlpha(cancel, 2, 2),
                                                 IxPixelFormat::ALPHA, im.region, nullptr);
        auto* r = new FnRequest([&] {
            IxWriteGuard g(out);
            dest->process(g, {IxReadGuard(src)});
        });
        PxRequestPtr<FnRequest> const p(r);
        cancel->request = CacheSpy::request = r;
        engine().executeRequest(r, false);
        if (c.flushes) {
            engine().waitRequest(r);
            EXPECT_NE(pixel(out, 0, 0), -1.0f);
        } else {
            EXPECT_THROW(engine().waitRequest(r), PxEx::ExRequestCancelled);
            EXPECT_EQ(pixel(out, 0, 0), -1.0f) << "row " << c.cancelRow;
        }
        if (c.rows >= 0) {
            EXPECT_EQ(cancel->rows, c.rows) << "row " << c.cancelRow;
        }
        dest.reset(); // the graph goes after the run, nothing flushed then either
        EXPECT_EQ(CacheSpy::flushes, c.flushes)
            << "row " << c.cancelRow << " column " << c.cancelColumn;
    }
}

TEST_F(AlphaPipes, AFailingRunRaisesItsFirstFailure) {
    Image const im = blobs({0, 8, 0, 8}, 0.0f, 4);
    IxTile const src = alphaTile(im);
    struct Case {
        bool inTick;
        bool inFinish;
        char const* reason;
    };
    // A node that fails again while the graph is being finished must not end the process.
    Case const cases[] = {
        {true, true, "tick failed"}, {true, false, "tick failed"}, {false, true, "finish failed"}};
    for (Case const& c : cases) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IpScanlinePipePtr const failing(new Failing(s, c.inTick, c.inFinish));
        EXPECT_EQ(reasonOf([&] {
                      run(s, IpScanlinePipeUtils::createBlurAlpha(failing, 1, 1), src, im.region);
                  }),
                  c.reason);
    }
}
