// The Blur tool's node on a 4K RGBA float frame, one worker, against OpenCV's GaussianBlur with
// the same kernel (size s: sigma s / 2, 2 ceil(1.5 s) + 1 taps), one thread each. Ours stops at
// the frame's tiles in memory; OpenCV's at its own buffer.

#include "BenchImages.h"
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
using namespace VnBench;

namespace {

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
