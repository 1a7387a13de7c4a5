// Tools connected in a tool graph at n and 2n tools: building a chain of Gain tools behind a
// test pattern with its first render, and one disconnect and reconnect with the render after
// each. There is no reference to compare with; the two sizes show how time scales.

#include "HoGraph.h"
#include "HoRender.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiNode.h"
#include "PiTopologyInterface.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

using namespace Vn;

namespace {

struct Chain {
    RCShdPtr<PiGraph> graph;
    std::vector<RCShdPtr<PiToolNode>> tools;
};

template <class T>
void set(RCShdPtr<PiToolNode> const& n, char const* input, T v) {
    RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
    rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
}

Chain makeChain(int n) {
    Chain c{HoGraph::create("bench"), {}};
    RCShdPtr<PiGroupNode> root = c.graph->getRootNode();
    auto pattern = root->createToolNode(HoTools::testPattern(), "P");
    set<int>(pattern, "Width", 64);
    set<int>(pattern, "Height", 32);
    c.tools.push_back(pattern);
    for (int i = 0; i < n; ++i) {
        auto g = root->createToolNode(HoTools::gain(), "G" + std::to_string(i));
        g->findInput("Source")->connect(c.tools.back()->findOutput("Output"));
        c.tools.push_back(g);
    }
    return c;
}

void render(RCShdPtr<PiToolNode> const& last) {
    auto topo = rcCast<PiTopologyInterface>(last->getController().lock());
    PxStrongHndl<PxNode const> const out =
        topo->getOutputProcNode(last->findOutput("Output")).lock();
    auto const* image = dynamic_cast<PxImageProtocol const*>(out.get());
    benchmark::DoNotOptimize(
        HoRenderer::renderFrame(PxStrongHndl<PxImageProtocol const>(image), 0.0).pixels.data());
}

void BM_BuildAndFirstRender(benchmark::State& state) {
    for (auto _ : state) {
        Chain c = makeChain(static_cast<int>(state.range(0)));
        render(c.tools.back());
        state.PauseTiming();
        c = {};
        state.ResumeTiming();
    }
}
BENCHMARK(BM_BuildAndFirstRender)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond);

void BM_ReconnectAndRender(benchmark::State& state) {
    Chain c = makeChain(static_cast<int>(state.range(0)));
    render(c.tools.back());
    RCShdPtr<PiInput> const in = c.tools.back()->findInput("Source");
    RCShdPtr<PiOutput> const out = c.tools[c.tools.size() - 2]->findOutput("Output");
    for (auto _ : state) {
        in->disconnect();
        render(c.tools.back());
        in->connect(out);
        render(c.tools.back());
    }
}
BENCHMARK(BM_ReconnectAndRender)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    InInitMgr::getInstance().finalize();
    return 0;
}
