// The Transform tool's node on a 4K RGBA float frame, one worker: turned by 30 degrees and halved,
// bilinear, against OpenCV's warpAffine and OpenImageIO's warp making the same number of pixels
// by the same mapping, one thread each. Ours stops at the frame's tiles in memory, theirs at their
// own buffers.

#include "BenchImages.h"
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
using namespace VnBench;

namespace {

constexpr double kDegrees = 30.0;
constexpr double kScale = 0.5;

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
