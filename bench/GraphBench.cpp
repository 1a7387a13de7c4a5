// The tool graph's edits at n and 2n tool nodes, each with its value node and fed by the one
// before: making them, cloning them, writing and reading them as XML, and the undo and redo of
// each edit. There is no reference to compare with; the two sizes show how time scales (twice
// the time for twice the nodes is the goal).

#include "HoGraph.h"
#include "HoToolRegistry.h"
#include "PiCommandStack.h"
#include "PiTool.h"
#include "XmlDocument.h"

#include <benchmark/benchmark.h>

#include <limits>
#include <malloc.h>
#include <sys/resource.h>

using namespace Vn;

namespace {

class Node final : public PiToolProtocolImp {
public:
    Node() : PiToolProtocolImp("Node", "Bench", "1.0") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Gain", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::IMAGE);
        d.stores("Mode", PiValueType::Int);
    }
};

RCShdPtr<PiTool const> const& tool() {
    static RCShdPtr<PiTool const> t = [] {
        RCShdPtr<PiTool const> made(new PiTool(RCShdPtr<PiToolProtocol const>(new Node)));
        HoToolRegistry::initialize().registerTool(made);
        return made;
    }();
    return t;
}

std::vector<RCShdPtr<PiNode>> makeChain(PiGraph& g, int n) {
    PiUndoGuard guard(g, "Create");
    std::vector<RCShdPtr<PiNode>> nodes;
    RCShdPtr<PiGroupNode> root = g.getRootNode();
    for (int i = 0; i < n; ++i) {
        RCShdPtr<PiNode> node = root->createToolNode(tool(), "n" + std::to_string(i));
        if (i > 0)
            node->findInput("Source")->connect(nodes.back()->findOutput("Output"));
        nodes.push_back(node);
    }
    return nodes;
}

// The tool nodes and their value nodes.
std::vector<RCShdPtr<PiNode>> withValues(std::vector<RCShdPtr<PiNode>> const& nodes) {
    std::vector<RCShdPtr<PiNode>> all = nodes;
    for (auto const& n : nodes)
        all.push_back(n->findInput("Gain")->getConnectedOutput()->retrieveNode());
    return all;
}

enum class Op { Create, Clone, Archive, Unarchive };
enum class Phase { Edit, Undo, Redo };

long pageFaults() {
    rusage r;
    getrusage(RUSAGE_SELF, &r);
    return r.ru_minflt;
}

// Freed pages stay with the process. Otherwise whether an edit pays the kernel for fresh zeroed
// pages depends on what ran before: a size after a larger one reuses that one's pages, the
// larger one takes new ones, and the difference showed as a growth of three times.
void keepFreedPages() {
#ifdef __GLIBC__
    static bool const kept = [] {
        mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
        mallopt(M_MMAP_THRESHOLD, 32 << 20);
        return true;
    }();
    (void)kept;
#endif
}

// One edit (or its undo or redo) on a graph made for it; only the edit itself is timed, and
// the graph is destroyed outside the timing.
template <Op op, Phase phase>
void runOnce(benchmark::State& st, int n, bool timed, long& faults) {
    RCShdPtr<PiGraph> g = HoGraph::create("bench");
    PiCommandStack& stack = g->getCommandStack();
    std::vector<RCShdPtr<PiNode>> nodes;
    std::string text;
    if (op != Op::Create)
        nodes = withValues(makeChain(*g, n));
    if (op == Op::Archive || op == Op::Unarchive) {
        XmlWriter w;
        g->archiveNodes(nodes, w);
        text = w.toString();
    }
    auto edit = [&] {
        switch (op) {
        case Op::Create:
            makeChain(*g, n);
            break;
        case Op::Clone:
            benchmark::DoNotOptimize(g->getRootNode()->cloneNodes(nodes).size());
            break;
        case Op::Archive: {
            XmlWriter w;
            g->archiveNodes(nodes, w);
            benchmark::DoNotOptimize(w.toString().size());
            break;
        }
        case Op::Unarchive:
            benchmark::DoNotOptimize(
                g->unarchiveNodes(XmlDocument::parse(text).getRoot(), g->getRootNode()).size());
            break;
        }
    };
    if (phase != Phase::Edit) {
        edit();
        if (phase == Phase::Redo)
            stack.undo();
    }
    if (timed)
        st.ResumeTiming();
    long const before = pageFaults();
    switch (phase) {
    case Phase::Edit:
        edit();
        break;
    case Phase::Undo:
        stack.undo();
        break;
    case Phase::Redo:
        stack.redo();
        break;
    }
    faults += pageFaults() - before;
    if (timed)
        st.PauseTiming();
}

template <Op op, Phase phase>
void BM_Graph(benchmark::State& st) {
    keepFreedPages();
    int const n = static_cast<int>(st.range(0));
    long faults = 0;
    // A first, untimed run brings the heap to this size.
    runOnce<op, phase>(st, n, false, faults);
    faults = 0;
    for (auto _ : st) {
        st.PauseTiming();
        runOnce<op, phase>(st, n, true, faults);
        st.ResumeTiming();
    }
    st.counters["nodes/s"] =
        benchmark::Counter(double(st.iterations()) * n, benchmark::Counter::kIsRate);
    // Page faults per timed edit: near 0 when the heap is warm.
    st.counters["faults"] = double(faults) / double(st.iterations());
}

void sizes(benchmark::internal::Benchmark* b, int n) {
    b->Arg(n)->Arg(2 * n)->Unit(benchmark::kMillisecond)->Iterations(3);
}

} // namespace

BENCHMARK(BM_Graph<Op::Create, Phase::Edit>)->Apply([](auto* b) { sizes(b, 10000); });
BENCHMARK(BM_Graph<Op::Create, Phase::Undo>)->Apply([](auto* b) { sizes(b, 10000); });
BENCHMARK(BM_Graph<Op::Create, Phase::Redo>)->Apply([](auto* b) { sizes(b, 10000); });
BENCHMARK(BM_Graph<Op::Clone, Phase::Edit>)->Apply([](auto* b) { sizes(b, 5000); });
BENCHMARK(BM_Graph<Op::Clone, Phase::Undo>)->Apply([](auto* b) { sizes(b, 5000); });
BENCHMARK(BM_Graph<Op::Clone, Phase::Redo>)->Apply([](auto* b) { sizes(b, 5000); });
BENCHMARK(BM_Graph<Op::Archive, Phase::Edit>)->Apply([](auto* b) { sizes(b, 5000); });
BENCHMARK(BM_Graph<Op::Unarchive, Phase::Edit>)->Apply([](auto* b) { sizes(b, 5000); });
BENCHMARK(BM_Graph<Op::Unarchive, Phase::Undo>)->Apply([](auto* b) { sizes(b, 5000); });
BENCHMARK(BM_Graph<Op::Unarchive, Phase::Redo>)->Apply([](auto* b) { sizes(b, 5000); });

BENCHMARK_MAIN();
