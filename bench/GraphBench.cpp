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

template <Op op, Phase phase>
void BM_Graph(benchmark::State& st) {
    int const n = static_cast<int>(st.range(0));
    for (auto _ : st) {
        st.PauseTiming();
        RCShdPtr<PiGraph> g = HoGraph::create("bench");
        PiCommandStack& stack = g->getCommandStack();
        std::vector<RCShdPtr<PiNode>> nodes;
        std::string text;
        XmlDocument doc;
        if (op != Op::Create)
            nodes = withValues(makeChain(*g, n));
        if (op == Op::Archive || op == Op::Unarchive) {
            XmlWriter w;
            g->archiveNodes(nodes, w);
            text = w.toString();
            doc = XmlDocument::parse(text);
        }
        auto edit = [&] {
            switch (op) {
            case Op::Create:
                makeChain(*g, n);
                break;
            case Op::Clone:
                g->getRootNode()->cloneNodes(nodes);
                break;
            case Op::Archive: {
                XmlWriter w;
                g->archiveNodes(nodes, w);
                benchmark::DoNotOptimize(w.toString());
                break;
            }
            case Op::Unarchive:
                g->unarchiveNodes(XmlDocument::parse(text).getRoot(), g->getRootNode());
                break;
            }
        };
        if (phase == Phase::Edit) {
            st.ResumeTiming();
            edit();
            st.PauseTiming();
        } else {
            edit();
            if (phase == Phase::Redo)
                stack.undo();
            st.ResumeTiming();
            phase == Phase::Undo ? stack.undo() : stack.redo();
            st.PauseTiming();
        }
        g.reset();
        nodes.clear();
        st.ResumeTiming();
    }
    st.counters["nodes/s"] =
        benchmark::Counter(double(st.iterations()) * n, benchmark::Counter::kIsRate);
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
