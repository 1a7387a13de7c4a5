#pragma once

#include "ExBase.h"
#include "HoGraph.h"
#include "HoToolRegistry.h"
#include "PiCommandStack.h"
#include "PiGroupInterface.h"
#include "PiTool.h"
#include "PiTopologyInterface.h"
#include "PiValueChangeInterface.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vn::GraphTest {

// Every hook a controller hears, as "node: hook args", in order.
inline std::vector<std::string>& hookLog() {
    static std::vector<std::string> log;
    return log;
}

// The name of the nodes whose controllers fail once they have logged that they were loaded or
// removed; empty for none.
inline std::string& failingNode() {
    static std::string name;
    return name;
}

inline std::string nameOf(PiNodeController const& c) {
    RCShdPtr<PiNode> n = c.getNode();
    return n ? n->getNodeName() : "<none>";
}

class RecordingController : public PiTopologyInterface,
                            public PiValueChangeInterface,
                            public PiGroupInterface {
    void log(std::string const& s) { hookLog().push_back(nameOf(*this) + ": " + s); }
    static std::string n(RCShdPtr<PiInput> const& in) { return in->getDottedName(); }
    void nodeCreated() override { log("nodeCreated"); }
    void nodeLoaded() override { logAndFail("nodeLoaded"); }
    void nodeRemoved() override { logAndFail("nodeRemoved"); }
    void logAndFail(std::string const& s) {
        log(s);
        if (nameOf(*this) == failingNode())
            throw ExInternalError(__FILE__, __LINE__, "refused");
    }
    void nameChanged() override { log("nameChanged"); }
    void inputAddedToComposite(RCShdPtr<PiCompositeInput> const& c,
                               RCShdPtr<PiInput> const& in) override {
        log("inputAddedToComposite " + c->getName() + " " + n(in));
    }
    void inputMovedInComposite(RCShdPtr<PiCompositeInput> const&, RCShdPtr<PiInput> const& in,
                               int from, int to) override {
        log("inputMovedInComposite " + n(in) + " " + std::to_string(from) + ">" +
            std::to_string(to));
    }
    void inputRemovedFromComposite(RCShdPtr<PiCompositeInput> const& c, int) override {
        log("inputRemovedFromComposite " + c->getName());
    }
    void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& o) override {
        log("inputConnected " + n(in) + " " + o->getName());
    }
    void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& o) override {
        log("inputDisconnected " + n(in) + " " + o->getName());
    }
    void outputConnected(RCShdPtr<PiOutput> const& o, RCShdPtr<PiInput> const& in) override {
        log("outputConnected " + o->getName() + " " + n(in));
    }
    void outputDisconnected(RCShdPtr<PiOutput> const& o, RCShdPtr<PiInput> const& in) override {
        log("outputDisconnected " + o->getName() + " " + n(in));
    }
    void resultStateChanged(RCShdPtr<PiOutput> const& o) override {
        log("resultStateChanged " + o->getName() + " " + std::to_string(o->getResultState()));
    }
    void dynamicInputAdded(RCShdPtr<PiInput> const& in) override {
        log("dynamicInputAdded " + n(in));
    }
    void dynamicInputRemoved(int) override { log("dynamicInputRemoved"); }
    void dynamicOutputAdded(RCShdPtr<PiOutput> const& o) override {
        log("dynamicOutputAdded " + o->getName());
    }
    void dynamicOutputRemoved(int) override { log("dynamicOutputRemoved"); }
    void valueChanged(RCShdPtr<PiValue> const& v) override {
        log("valueChanged " + v->getName() + "=" + v->toString());
    }
    void dynamicValueAdded(RCShdPtr<PiValue> const& v) override {
        log("dynamicValueAdded " + v->getName());
    }
    void dynamicValueRemoved(std::string const& name, int) override {
        log("dynamicValueRemoved " + name);
    }
    void nodeAdded(RCShdPtr<PiNode> const& node) override {
        log("nodeAdded " + node->getNodeName());
    }
    void nodeRemovedFromGraph(int) override { log("nodeRemovedFromGraph"); }
    void nodeMoved(RCShdPtr<PiNode> const& node) override {
        log("nodeMoved " + node->getNodeName());
    }
    void socketsConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& o) override {
        log("socketsConnected " + n(in) + " " + o->getName());
    }
    void socketsDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& o,
                             RCShdPtr<PiNode> const&) override {
        log("socketsDisconnected " + n(in) + " " + o->getName());
    }
};

class RecordingFactory final : public PiNodeControllerFactory {
    static RCShdPtr<PiNodeController> make() {
        return RCShdPtr<PiNodeController>(new RecordingController);
    }
    RCShdPtr<PiNodeController> createGroupController(PiTool const*) override { return make(); }
    RCShdPtr<PiNodeController> createBoundaryController() override { return make(); }
    RCShdPtr<PiNodeController> createLinkController() override { return make(); }
    RCShdPtr<PiNodeController> createValueController(PiSocketType) override { return make(); }
};

// "Blur": an image source, a double, a list of layers, a list of points, a structured
// transform; one image output; an int and a double array stored.
class BlurProtocol final : public PiToolProtocolImp {
public:
    explicit BlurProtocol(std::string version = "1.0")
        : PiToolProtocolImp("Blur", "Filter", std::move(version), "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Radius", PiSocketType::DOUBLE);
        d.require("Layers", PiSocketType::IMAGE, {}, PiSocketType::COMPOSITE);
        d.require("Points", PiSocketType::DOUBLE, {}, PiSocketType::MULTIVALUED);
        auto& t = d.requireStructured("Transform");
        t.require("x", PiSocketType::DOUBLE);
        t.require("y", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::IMAGE);
        d.stores("Mode", PiValueType::Int);
        d.stores("Curve", PiValueType::DoubleArray);
    }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new RecordingController);
    }
};

// "Gen": one image output.
class GenProtocol final : public PiToolProtocolImp {
public:
    GenProtocol() : PiToolProtocolImp("Gen", "Source", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.produces("Output", PiSocketType::IMAGE);
    }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new RecordingController);
    }
};

using ToolPtr = RCShdPtr<PiTool const>;

// A graph with recording controllers and registered tools:
//   N (Gen), A and B (Blur, B.Source <- A.Output, B.Layers holds L1 <- N, L2, L3),
//   G (group) with inputs gin <- A.Output and outputs gout; C (Blur) inside, gin -> C.Source,
//   C.Output -> gout. Every value input has its value node.
class GraphFixture : public ::testing::Test {
public:
    void SetUp() override {
        PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new RecordingFactory));
        HoToolRegistry& reg = HoToolRegistry::initialize();
        blur = ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(new BlurProtocol)));
        gen = ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(new GenProtocol)));
        reg.registerTool(blur);
        reg.registerTool(gen);
        graph = HoGraph::create("comp");
        root = graph->getRootNode();
        {
            PiUndoGuard g(*graph, "Scene");
            N = root->createToolNode(gen, "N");
            A = root->createToolNode(blur, "A");
            B = root->createToolNode(blur, "B");
            in(B, "Source")->connect(out(A));
            auto layers = composite(B, "Layers");
            layers->insertInput(0, "L1")->connect(out(N));
            layers->insertInput(1, "L2");
            layers->insertInput(2, "L3");
            G = root->createGroupNode("G");
            gin = G->addDynamicInput("gin", PiSocketType::IMAGE);
            gout = G->addDynamicOutput("gout", PiSocketType::IMAGE);
            C = G->createToolNode(blur, "C");
            gin->connect(out(A));
            in(C, "Source")->connect(boundary(gin)->getOutput());
            boundary(gout)->getInput()->connect(out(C));
        }
        graph->getCommandStack().clear();
        hookLog().clear();
    }
    void TearDown() override {
        graph.reset();
        failingNode().clear();
        HoToolRegistry::finalize();
        PiNodeControllerFactory::setInstance(nullptr);
    }

    static RCShdPtr<PiInput> in(RCShdPtr<PiNode> const& n, std::string const& name) {
        RCShdPtr<PiInput> i = n->findInput(name);
        EXPECT_TRUE(i) << name;
        return i;
    }
    static RCShdPtr<PiOutput> out(RCShdPtr<PiNode> const& n, std::string const& name = "Output") {
        RCShdPtr<PiOutput> o = n->findOutput(name);
        EXPECT_TRUE(o) << name;
        return o;
    }
    static RCShdPtr<PiCompositeInput> composite(RCShdPtr<PiNode> const& n,
                                                std::string const& name) {
        return rcCast<PiCompositeInput>(in(n, name));
    }
    static RCShdPtr<PiBoundaryNode> boundary(RCShdPtr<PiSocket> const& s) {
        return rcCast<PiBoundaryNode>(s->retrieveNode());
    }
    template <class T>
    static RCShdPtr<T> value(RCShdPtr<PiNode> const& n, std::string const& name) {
        return rcCast<T>(n->findValue(name));
    }
    // The value node feeding a value input.
    static RCShdPtr<PiNode> valueNode(RCShdPtr<PiNode> const& n, std::string const& input) {
        return in(n, input)->getConnectedOutput()->retrieveNode();
    }
    std::string dump(bool ids = true) const { return HoGraphUtil::dump(*root, ids); }
    void expectSound() const {
        std::vector<std::string> problems = HoGraphUtil::checkInvariants(*graph);
        EXPECT_TRUE(problems.empty()) << ::testing::PrintToString(problems);
    }

    ToolPtr blur, gen;
    RCShdPtr<PiGraph> graph;
    RCShdPtr<PiGroupNode> root;
    RCShdPtr<PiNode> N, A, B, C;
    RCShdPtr<PiGroupNode> G;
    RCShdPtr<PiInput> gin;
    RCShdPtr<PiOutput> gout;
};

} // namespace Vn::GraphTest
