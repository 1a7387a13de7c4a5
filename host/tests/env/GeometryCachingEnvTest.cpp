// Whether a tool's geometry output is cached follows VN_DISABLE_GEOMETRY_CACHING, read when the
// library loads: each case runs in its own process, set up by ctest.
#include "HoGraph.h"
#include "InPackageInit.h"
#include "PiNode.h"
#include "PiProcNodeFactory.h"
#include "PiTool.h"
#include "PxDAGMonitorImp.h"
#include "Trace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <string>

using namespace Vn;

namespace {
class Mesher final : public PiToolProtocolImp {
public:
    Mesher() : PiToolProtocolImp("Mesher", "3D", "1.0") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.produces("Mesh", PiSocketType::GEOMETRY);
    }
};
} // namespace

TEST(GeometryCachingEnv, CacheNodeFollowsTheVariable) {
    char const* expected = std::getenv("EXPECT_CACHE");
    ASSERT_TRUE(expected) << "run through ctest, which sets the expectation";
    InInitMgr::getInstance().initialize();
    {
        RCShdPtr<PiGraph> graph = HoGraph::create("scene");
        RCShdPtr<PiTool const> tool(new PiTool(RCShdPtr<PiToolProtocol const>(new Mesher)));
        RCShdPtr<PiToolNode> node = graph->getRootNode()->createToolNode(tool, "M");
        PiProcNodeFactory::Node const out = PiProcNodeFactory::createOutputNode(
            node->findOutput("Mesh"),
            PiProcNodeFactory::createGeneratorNode(PiSocketType::GEOMETRY));

        std::mutex m;
        std::string dot;
        PxDAGMonitorImp::getTrace().setLevel(Trace::MainTraceLevel);
        auto previous = TraceManager::getInstance().setOutput([&](std::string const& l) {
            std::lock_guard g(m);
            dot += l + "\n";
        });
        PxDAGMonitor::getInstance().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_IN_TRACE);
        TraceManager::getInstance().setOutput(std::move(previous));
        EXPECT_NE(dot.find("PassThroughNode<Vn::PxGeometryProtocol>"), std::string::npos) << dot;
        EXPECT_EQ(dot.find("PxGeometryCacheNode") != std::string::npos,
                  std::string(expected) == "1")
            << dot;
    }
    InInitMgr::getInstance().finalize();
}
