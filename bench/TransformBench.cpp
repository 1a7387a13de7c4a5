// The Transform tool's node on a 4K RGBA float frame, one worker: turned by 30 degrees and halved,
// bilinear, against OpenCV's warpAffine and OpenImageIO's warp making the same number of pixels
// by the same mapping, one thread each. Ours stops at the frame's tiles in memory, theirs at their
// own buffers.

#include "BenchRatio.h"

#include "HoTransformTools.h"
#include "InPackageInit.h"
#include "PxImageRequests.h"
#include "PxImageSourceNodes.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"
#include "SdTexture.h"

#include <Imath/ImathMatrix.h>
#include <OpenImageIO/imagebufalgo.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <map>
#include <numbers>
#include <random>

using namespace Vn;

namespace {

constexpr int kW = 3840;
constexpr int kH = 2160;
constexpr double kDegrees = 30.0;
constexpr double kScale = 0.5;

template <class N>
PxStrongHndl<N> made(N* n) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return h;
}
template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const> value(T v) {
    return made(new PxAnimValueNode<T>(PxNode::Init{"value"}, PxResult<T>(v)));
}

// A frame whose tiles are made once, before timing.
class PreparedSource final : public PxImageLeafNode {
public:
    using PxImageLeafNode::PxImageLeafNode;
    void prepare() {
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        GeRectangle<int> const tiles = convertPixelsToTiles({0, kW, 0, kH});
        for (int j = tiles.ymin; j < tiles.ymax; ++j)
            for (int i = tiles.xmin; i < tiles.xmax; ++i) {
                PxValidityInterval vi = PxValidityInterval::FULL;
                IxTile const t = allocateImageBuffer(PxImageContext(0.0, {i, j}, 0, 0), vi);
                IxWriteGuard const g(t);
                GeRectangle<int> const& r = t.getPixelRegion();
                for (int y = r.ymin; y < r.ymax; ++y)
                    for (int x = r.xmin; x < r.xmax; ++x)
                        *g.getPixel<CoRgbaColorTyped<float>>(x, y) = {u(rng), u(rng), u(rng), 1};
                _tiles[{i, j}] = t;
            }
    }
    PxImageResult getImageResult(PxImageContext const& c) const override {
        auto const it = _tiles.find({c.getTile().x, c.getTile().y});
        if (it == _tiles.end())
            return PxImageResult(allocateEmptyImageBuffer(), PxValidityInterval::FULL);
        return PxImageResult(it->second, PxValidityInterval::FULL);
    }

private:
    std::map<std::pair<int, int>, IxTile> _tiles;
};

PxStrongHndl<PxImageProtocol const>& source() {
    static PxStrongHndl<PxImageProtocol const> s = [] {
        PxStrongHndl<PxImageFormatProtocol const> f = made(new PxImageFormatNode(
            PxNode::Init{"format"},
            PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                          Rational(25))));
        auto* src = new PreparedSource(PxNode::Init{"source"}, f, value(kW), value(kH),
                                       value(CoRgbColorTyped<float>{}), value(0.0));
        PxStrongHndl<PxImageProtocol const> h = made(src);
        src->prepare();
        return h;
    }();
    return s;
}

std::vector<float>& plainSource() {
    static std::vector<float> p = [] {
        std::vector<float> v(std::size_t(kW) * kH * 4);
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        for (float& x : v)
            x = u(rng);
        return v;
    }();
    return p;
}

// The turned and halved frame's size: what each side makes.
int outW() {
    double const a = kDegrees * std::numbers::pi / 180.0;
    return int(std::ceil(kScale * (kW * std::cos(a) + kH * std::sin(a))));
}
int outH() {
    double const a = kDegrees * std::numbers::pi / 180.0;
    return int(std::ceil(kScale * (kW * std::sin(a) + kH * std::cos(a))));
}

// Source pixels to output pixels, centre to centre, as a 2 x 3 forward matrix.
std::array<double, 6> forward() {
    double const a = kDegrees * std::numbers::pi / 180.0;
    double const c = kScale * std::cos(a), s = kScale * std::sin(a);
    double const tx = outW() / 2.0 - (c * kW / 2.0 - s * kH / 2.0);
    double const ty = outH() / 2.0 - (s * kW / 2.0 + c * kH / 2.0);
    return {c, -s, tx, s, c, ty};
}

// Every tile of the frame through the engine, kept as tiles: the pixels in memory.
std::size_t renderTiles(PxStrongHndl<PxImageProtocol const> const& node) {
    PxRequestPtr<PxImageMultiTileRequest> r(
        new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(node), 0, PxTimeInfo(0.0), 0));
    PxRequestMgr::getInstance().executeRequest(r.get(), false);
    std::size_t pixels = 0;
    for (PxImageResult const& t : *r->getResults())
        pixels +=
            std::size_t(t.getPixelRegion().width()) * std::size_t(t.getPixelRegion().height());
    return pixels;
}

void ours(benchmark::State& st) {
    PxRequestMgr::getInstance().setMaxRunningWorkers(1);
    auto const zero = value(0.0);
    PiAffineNodeUtil::Params const params(
        {zero, zero, zero, zero, zero, value(kDegrees), value(kScale), value(kScale)});
    PxStrongHndl<PxImageProtocol const> const node = made(new HoTransformNode(
        PxNode::Init{"transform"}, source(), params, value(int(SdTextureTypes::FILTER_BILINEAR))));
    std::size_t pixels = 0;
    renderTiles(node); // the tile pool's pages are touched once, untimed
    for (auto _ : st) {
        pixels = renderTiles(node);
        benchmark::DoNotOptimize(pixels);
    }
    st.counters["pixels"] = double(pixels);
    st.SetItemsProcessed(st.iterations() * std::int64_t(pixels));
}

void openCV(benchmark::State& st) {
    cv::setNumThreads(1);
    cv::Mat const src(kH, kW, CV_32FC4, plainSource().data());
    auto const f = forward();
    cv::Mat const m = (cv::Mat_<double>(2, 3) << f[0], f[1], f[2], f[3], f[4], f[5]);
    cv::Mat dst;
    for (auto _ : st) {
        cv::warpAffine(src, dst, m, cv::Size(outW(), outH()), cv::INTER_LINEAR,
                       cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(dst.data);
    }
    st.counters["pixels"] = double(outW()) * outH();
    st.SetItemsProcessed(st.iterations() * outW() * outH());
}

void oiio(benchmark::State& st) {
    OIIO::ImageSpec const layout(kW, kH, 4, OIIO::TypeDesc::FLOAT);
    OIIO::ImageBuf const src(layout, plainSource().data());
    auto const f = forward();
    // Row vectors: the transpose of the 2 x 3 form.
    Imath::M33f const m{float(f[0]), float(f[3]), 0, float(f[1]), float(f[4]), 0,
                        float(f[2]), float(f[5]), 1};
    OIIO::ROI const roi(0, outW(), 0, outH(), 0, 1, 0, 4);
    for (auto _ : st) {
        OIIO::ImageBuf const out = OIIO::ImageBufAlgo::warp(src, m, "triangle", 0.0f, false,
                                                            OIIO::ImageBuf::WrapBlack, roi, 1);
        benchmark::DoNotOptimize(out.localpixels());
    }
    st.counters["pixels"] = double(outW()) * outH();
    st.SetItemsProcessed(st.iterations() * outW() * outH());
}

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    auto reg = [](char const* name, auto fn) {
        // CPU time of the whole process, workers included: on a busy machine it tells what the
        // work cost where the wall clock tells what it waited.
        benchmark::RegisterBenchmark(name, fn)
            ->Unit(benchmark::kMillisecond)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    };
    reg("Transform_Bilinear", ours);
    reg("OpenCV_warpAffine_Linear", openCV);
    reg("OIIO_warp_Triangle", oiio);
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"bilinear transform / OpenCV warpAffine linear", "Transform_Bilinear",
          "OpenCV_warpAffine_Linear"},
         {"bilinear transform / OIIO warp triangle", "Transform_Bilinear", "OIIO_warp_Triangle"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
