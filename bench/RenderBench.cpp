// The batch renderer's default frame, 1920 x 1080 RGBA half, evaluated through the engine at 1
// and 2 running workers, against the image library making the same picture size the way its
// command line does with `--pattern` and `--over`: a four-corner gradient with alpha over a
// constant, with as many threads. Both sides stop at pixels in memory; no file is written.
// Prints our time over the reference's and frames per second (lower ratio is better).

#include "BenchRatio.h"

#include "HoRender.h"
#include "InPackageInit.h"
#include "PxRequestMgr.h"

#include <OpenImageIO/imagebufalgo.h>

using namespace Vn;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

template <int kWorkers>
void BM_Render(benchmark::State& st) {
    PxRequestMgr::getInstance().setMaxRunningWorkers(kWorkers);
    PxImageFormat const format(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT16),
                               Rational(25));
    PxStrongHndl<PxImageProtocol const> const graph =
        HoDefaultGraph::create(kWidth, kHeight, format);
    for (auto _ : st) {
        HoImage const image = HoRenderer::renderFrame(graph, 0.0);
        benchmark::DoNotOptimize(image.pixels.data());
    }
    st.counters["fps"] = benchmark::Counter(double(st.iterations()), benchmark::Counter::kIsRate);
}

template <int kThreads>
void BM_PatternOver(benchmark::State& st) {
    OIIO::ImageSpec const desc(kWidth, kHeight, 4, OIIO::TypeDesc::HALF);
    float const topLeft[] = {0.0f, 0.0f, 0.0f, 1.0f};
    float const topRight[] = {1.0f, 0.0f, 0.0f, 1.0f};
    float const bottomLeft[] = {0.0f, 0.0f, 0.0f, 0.25f};
    float const bottomRight[] = {0.25f, 0.25f, 0.25f, 0.25f};
    float const grey[] = {0.18f, 0.18f, 0.18f, 1.0f};
    for (auto _ : st) {
        OIIO::ImageBuf front(desc), back(desc), out(desc);
        OIIO::ImageBufAlgo::fill(front, topLeft, topRight, bottomLeft, bottomRight, {}, kThreads);
        OIIO::ImageBufAlgo::fill(back, grey, {}, kThreads);
        OIIO::ImageBufAlgo::over(out, front, back, {}, kThreads);
        benchmark::DoNotOptimize(out.localpixels());
    }
    st.counters["fps"] = benchmark::Counter(double(st.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_Render<1>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PatternOver<1>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Render<2>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PatternOver<2>)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"default frame 1920x1080 half, 1 worker / pattern+over, 1 thread", "BM_Render<1>",
          "BM_PatternOver<1>"},
         {"default frame 1920x1080 half, 2 workers / pattern+over, 2 threads", "BM_Render<2>",
          "BM_PatternOver<2>"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
