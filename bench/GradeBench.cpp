// The Grade tool on a 1920 x 1080 RGBA float frame, rendered through the engine at 1 and 2
// running workers, against the image library grading the same frame with a multiply-add and a
// per-channel power, with as many threads. Both sides make their source (a constant colour)
// and stop at pixels in memory. Prints our time over the reference's (lower is better).

#include "BenchRatio.h"

#include "HoGraph.h"
#include "HoRender.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiGraph.h"
#include "PiSockets.h"
#include "PiTopologyInterface.h"
#include "PiValueInterface.h"
#include "PxRequestMgr.h"

#include <OpenImageIO/imagebufalgo.h>

using namespace Vn;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr float kLift[] = {0.05f, 0.0f, 0.02f, 0.0f};
constexpr float kGain[] = {1.5f, 0.8f, 1.2f, 1.0f};
constexpr float kGamma[] = {2.2f, 1.8f, 0.5f, 1.0f};

template <class T>
void setInput(RCShdPtr<PiToolNode> const& n, std::string const& input, T v) {
    RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
    rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
}

// Color Source -> Grade, the grade's output node.
struct GradeGraph {
    RCShdPtr<PiGraph> graph = HoGraph::create("grade");
    PxStrongHndl<PxImageProtocol const> out;
    GradeGraph() {
        RCShdPtr<PiGroupNode> root = graph->getRootNode();
        RCShdPtr<PiToolNode> src = root->createToolNode(HoTools::colorSource(), "Source");
        setInput<int>(src, "Width", kWidth);
        setInput<int>(src, "Height", kHeight);
        RCShdPtr<PiToolNode> grade = root->createToolNode(HoTools::grade(), "Grade");
        char const* const channels[] = {"Red", "Green", "Blue", "Alpha"};
        for (int c = 0; c < 4; ++c) {
            setInput<double>(grade, std::string("Lift.") + channels[c], kLift[c]);
            setInput<double>(grade, std::string("Gain.") + channels[c], kGain[c]);
            setInput<double>(grade, std::string("Gamma.") + channels[c], kGamma[c]);
        }
        {
            PiUndoGuard guard(*graph, "Connect");
            grade->findInput("Source")->connect(src->findOutput("Output"));
        }
        auto topo = rcCast<PiTopologyInterface>(grade->getController().lock());
        PxStrongHndl<PxNode const> n = topo->getOutputProcNode(grade->findOutput("Output")).lock();
        out = PxStrongHndl<PxImageProtocol const>(dynamic_cast<PxImageProtocol const*>(n.get()));
    }
};

template <int kWorkers>
void BM_Grade(benchmark::State& st) {
    PxRequestMgr::getInstance().setMaxRunningWorkers(kWorkers);
    GradeGraph g;
    for (auto _ : st) {
        HoImage const image = HoRenderer::renderFrame(g.out, 0.0);
        benchmark::DoNotOptimize(image.pixels.data());
    }
}

template <int kThreads>
void BM_MadPow(benchmark::State& st) {
    OIIO::ImageSpec const desc(kWidth, kHeight, 4, OIIO::TypeDesc::FLOAT);
    float const source[] = {0.18f, 0.18f, 0.18f, 1.0f};
    float scale[4], exponent[4];
    for (int c = 0; c < 4; ++c) {
        scale[c] = kGain[c] - kLift[c];
        exponent[c] = 1.0f / kGamma[c];
    }
    for (auto _ : st) {
        OIIO::ImageBuf src(desc), out(desc);
        OIIO::ImageBufAlgo::fill(src, source, {}, kThreads);
        OIIO::ImageBufAlgo::mad(out, src, scale, kLift, {}, kThreads);
        OIIO::ImageBufAlgo::pow(out, out, exponent, {}, kThreads);
        benchmark::DoNotOptimize(out.localpixels());
    }
}

BENCHMARK(BM_Grade<1>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MadPow<1>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Grade<2>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MadPow<2>)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"grade 1920x1080 float, 1 worker / mad+pow, 1 thread", "BM_Grade<1>", "BM_MadPow<1>"},
         {"grade 1920x1080 float, 2 workers / mad+pow, 2 threads", "BM_Grade<2>", "BM_MadPow<2>"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
