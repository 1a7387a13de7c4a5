// A tool graph in a started library, for the suites that build tools and render them.
#pragma once

#include "EvEventManager.h"
#include "HoGraph.h"
#include "HoRender.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiNode.h"
#include "PiValue.h"

#include <gtest/gtest.h>

#include <string>

namespace Vn {

class ToolGraphFixture : public ::testing::Test {
public:
    void SetUp() override {
        InInitMgr::getInstance().initialize();
        graph = HoGraph::create("comp");
        root = graph->getRootNode();
    }
    void TearDown() override {
        EvEventManager::getInstance().flush();
        root = {};
        graph = {};
        InInitMgr::getInstance().finalize();
    }

    // A tool node; one with Width and Height inputs takes the given size when it is not 0.
    RCShdPtr<PiToolNode> addTool(RCShdPtr<PiTool const> const& tool, std::string const& name,
                                 int width = 0, int height = 0) {
        RCShdPtr<PiToolNode> n = root->createToolNode(tool, name);
        if (width > 0 && n->findInput("Width")) {
            set<int>(n, "Width", width);
            set<int>(n, "Height", height);
        }
        return n;
    }
    // The constant value of an input, through the value node that feeds it.
    template <class T>
    static void set(RCShdPtr<PiToolNode> const& n, std::string const& input, T v) {
        RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
        rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
    }
    void connect(RCShdPtr<PiToolNode> const& from, RCShdPtr<PiToolNode> const& to,
                 std::string const& input = "Source") {
        PiUndoGuard guard(*graph, "Connect");
        to->findInput(input)->connect(from->findOutput("Output"));
    }
    static PxStrongHndl<PxImageProtocol const> output(RCShdPtr<PiToolNode> const& n) {
        return HoDefaultGraph::outputOf(*n);
    }
    static HoImage renderTool(RCShdPtr<PiToolNode> const& n, double time = 0.0) {
        return HoRenderer::renderFrame(output(n), time);
    }

    RCShdPtr<PiGraph> graph;
    RCShdPtr<PiGroupNode> root;
};

} // namespace Vn
