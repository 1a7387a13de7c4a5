// The Blur tool's node on a 4K RGBA float frame, one worker, against OpenCV's GaussianBlur with
// the same kernel (size s: sigma s / 2, 2 ceil(1.5 s) + 1 taps), one thread each. Ours stops at
// the frame's tiles in memory; OpenCV's at its own buffer.

#include "BenchRatio.h"

#include "HoTransformTools.h"
#include "InPackageInit.h"
#include "IpAlphaKernels.h"
#include "PxImageRequests.h"
#include "PxImageSourceNodes.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <map>
#include <random>

using namespace Vn;

namespace {

constexpr int kW = 3840;
constexpr int kH = 2160;

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

void ours(benchmark::State& st, double size) {
    PxRequestMgr::getInstance().setMaxRunningWorkers(1);
    PxStrongHndl<PxImageProtocol const> const node =
        made(new HoBlurNode(PxNode::Init{"blur"}, source(), value(size)));
    renderTiles(node); // the tile pool's pages are touched once, untimed
    for (auto _ : st) {
        benchmark::DoNotOptimize(renderTiles(node));
    }
    st.SetItemsProcessed(st.iterations() * kW * kH);
}

void openCV(benchmark::State& st, double size) {
    cv::setNumThreads(1);
    cv::Mat const src(kH, kW, CV_32FC4, plainSource().data());
    int const taps = IpGauss1DKernel::getSize(float(size));
    cv::Mat dst;
    for (auto _ : st) {
        cv::GaussianBlur(src, dst, cv::Size(taps, taps), size / 2, size / 2, cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(dst.data);
    }
    st.SetItemsProcessed(st.iterations() * kW * kH);
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
    // A one-tap kernel: the road through the engine without the arithmetic.
    reg("Blur_Size0", [](benchmark::State& s) { ours(s, 0.0); });
    reg("Blur_Size5", [](benchmark::State& s) { ours(s, 5.0); });
    reg("OpenCV_GaussianBlur_Size5", [](benchmark::State& s) { openCV(s, 5.0); });
    reg("Blur_Size20", [](benchmark::State& s) { ours(s, 20.0); });
    reg("OpenCV_GaussianBlur_Size20", [](benchmark::State& s) { openCV(s, 20.0); });
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"blur size 5 (17 taps) / OpenCV GaussianBlur", "Blur_Size5", "OpenCV_GaussianBlur_Size5"},
         {"blur size 20 (61 taps) / OpenCV GaussianBlur", "Blur_Size20",
          "OpenCV_GaussianBlur_Size20"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
