// A tool graph in a started library, for the suites that build tools and render them, and the
// tools and pixel checks those suites share.
#pragma once

#include "EvEventManager.h"
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiNode.h"
#include "PiTool.h"
#include "PiValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace Vn {

// A tool a test defines in place: its names, its sockets and, when given, the maker of its
// controllers.
class TestToolProtocol final : public PiToolProtocolImp {
public:
    using Describe = std::function<void(PiToolPolicyDescriptor&)>;
    using Make = std::function<PiNodeController*()>;
    struct Names {
        std::string name, category = "Test", version = "1.0", manufacturer = {};
    };
    TestToolProtocol(Names names, Describe describe, Make make = {})
        : PiToolProtocolImp(std::move(names.name), std::move(names.category),
                            std::move(names.version), std::move(names.manufacturer)),
          _describe(std::move(describe)), _make(std::move(make)) {}
    void describe(PiToolPolicyDescriptor& d) const override { _describe(d); }
    RCShdPtr<PiNodeController> createController() const override {
        return _make ? RCShdPtr<PiNodeController>(_make()) : PiToolProtocolImp::createController();
    }

private:
    Describe _describe;
    Make _make;
};

inline RCShdPtr<PiTool const> testTool(TestToolProtocol::Names names,
                                       TestToolProtocol::Describe describe,
                                       TestToolProtocol::Make make = {}) {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(
        new TestToolProtocol(std::move(names), std::move(describe), std::move(make)))));
}

// The sockets of an image filter: these image inputs and one image "Output".
inline TestToolProtocol::Describe imageSockets(std::vector<std::string> inputs) {
    return [inputs = std::move(inputs)](PiToolPolicyDescriptor& d) {
        for (std::string const& in : inputs)
            d.require(in, PiSocketType::IMAGE);
        d.produces("Output", PiSocketType::IMAGE);
    };
}

// A processing node made and initialised, as the handle a consumer takes.
template <class Handle, class N>
Handle initialised(N* n) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return Handle(h);
}

using TestColor = CoRgbaColorTyped<float>;

// The test pattern at pixel (x, y), counted from the top left, of a w x h frame.
inline TestColor patternAt(int x, int y, int w, int h, double time = 0.0) {
    return HoTestPatternNode::colorAt((float(x) + 0.5f) / float(w), (float(y) + 0.5f) / float(h),
                                      time);
}

// The components of the image further from `want` than the tolerance, which grows with values
// above 1 when relative.
inline int mismatches(HoImage const& img, std::function<TestColor(int, int)> const& want,
                      float tolerance, bool relative = false) {
    int bad = 0;
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < img.width; ++x) {
            TestColor const a = img.getColor(x, y), b = want(x, y);
            for (int c = 0; c < 4; ++c) {
                float const wanted = (&b.r)[c];
                float const scale = relative ? std::max(1.0f, std::fabs(wanted)) : 1.0f;
                if (!(std::fabs((&a.r)[c] - wanted) <= tolerance * scale))
                    ++bad;
            }
        }
    return bad;
}

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
