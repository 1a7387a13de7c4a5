#include "../EngineTestSupport.h"

#include "PxDAGMonitorImp.h"
#include "PxValueNode.h"
#include "Trace.h"

#include <cstdlib>

using namespace VnTest;
using namespace Vn;

// The run's environment sets VN_PX_PRUNED_DAG_DUMP and, in EXPECT_NODES, how many nodes a dump
// of a three-node chain keeps.
TEST(DAGDumpEnv, PruningFromVariable) {
    char const* expected = std::getenv("EXPECT_NODES");
    ASSERT_TRUE(expected) << "run through ctest, which sets the expectation";
    InInitMgr::getInstance().initialize();
    {
        auto make = [] {
            return makeNode(new PxAnimValueNode<int>(PxNode::Init{"v"}, PxResult<int>(1)));
        };
        auto a = make(), b = make(), c = make();
        a->registerChild(PxNodePtr<PxNode const>(b));
        b->registerChild(PxNodePtr<PxNode const>(c));

        std::mutex m;
        std::vector<std::string> lines;
        PxDAGMonitorImp::getTrace().setLevel(Trace::MainTraceLevel);
        auto previous = TraceManager::getInstance().setOutput([&](std::string const& l) {
            std::lock_guard g(m);
            lines.push_back(l);
        });
        PxDAGMonitor::getInstance().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE);
        TraceManager::getInstance().setOutput(std::move(previous));
        std::string const want = std::string("PxDAGMonitor: ") + expected + " nodes.";
        bool found = false;
        for (auto const& l : lines)
            found = found || l.find(want) != std::string::npos;
        EXPECT_TRUE(found) << want;
    }
    InInitMgr::getInstance().finalize();
}
