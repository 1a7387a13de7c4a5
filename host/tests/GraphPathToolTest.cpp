#include "GraphTestSupport.h"

#include "ExBase.h"
#include "PiPath.h"

#include <sstream>

using namespace Vn;
using namespace Vn::GraphTest;

namespace {

class GraphPath : public GraphFixture {};

// Counts the calls; may drop a path from inside its own callback.
struct Heard final : PiPath::InvalidateCb {
    int calls = 0;
    RCShdPtr<PiPath>* drop = nullptr;
    std::string lastDump;
    void execute(RCShdPtr<PiPath> const& p) override {
        ++calls;
        if (drop)
            drop->reset();
        lastDump = p->dump(); // still alive
    }
};

class Versioned final : public PiToolProtocolImp {
public:
    Versioned(std::string name, std::string version, bool internal = false)
        : PiToolProtocolImp(std::move(name), "Test", std::move(version), "Acme"),
          _internal(internal) {}
    void describe(PiToolPolicyDescriptor& d) const override { d.produces("Out", 5); }
    bool isInternal() const override { return _internal; }

private:
    bool _internal;
};

ToolPtr tool(std::string name, std::string version, bool internal = false) {
    return ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(
        new Versioned(std::move(name), std::move(version), internal))));
}

} // namespace

// A path hears when a node on it leaves the graph, also through its group, and when an input
// on it loses its connection; copies hear on their own.
TEST_F(GraphPath, PathsHearWhenTheirRouteBreaks) {
    RCShdPtr<PiPath> path = PiPath::create();
    path->addStep({C, in(C, "Source"), out(C)});
    path->addStepFront({A, in(A, "Source"), nullptr});
    Heard heard;
    path->addInvalidateCb(&heard);
    RCShdPtr<PiPath> copy = path->copy();
    Heard heardCopy;
    copy->addInvalidateCb(&heardCopy);
    EXPECT_TRUE(*copy == *path);
    EXPECT_EQ(path->tail()->getSize(), 1);
    EXPECT_TRUE(path->tail()->getSteps()[0].node == C);
    EXPECT_NE(path->dump().find("A(" + std::to_string(A->getId()) + ") in:Source"),
              std::string::npos);

    root->removeNode(N);
    EXPECT_EQ(heard.calls, 0);
    root->removeNode(G); // C is inside
    EXPECT_EQ(heard.calls, 1);
    EXPECT_EQ(heardCopy.calls, 1);
    graph->getCommandStack().undo();
    in(C, "Source")->disconnect(); // a cut on the route
    EXPECT_EQ(heard.calls, 2);
    in(B, "Source")->disconnect(); // a cut elsewhere
    EXPECT_EQ(heard.calls, 2);

    // Without its last step, the copy no longer hears of C.
    copy->popTail();
    EXPECT_EQ(copy->getSize(), 1);
    EXPECT_FALSE(*copy == *path);
    int const copyCalls = heardCopy.calls;
    root->removeNode(G);
    EXPECT_EQ(heard.calls, 3);
    EXPECT_EQ(heardCopy.calls, copyCalls);

    // The last holder lets the path go inside its own callback: it lives until the call ends.
    RCShdPtr<PiPath> only = PiPath::create();
    only->addStep({A, nullptr, out(A)});
    Heard dropper;
    dropper.drop = &only;
    only->addInvalidateCb(&dropper);
    root->removeNode(A);
    EXPECT_EQ(dropper.calls, 1);
    EXPECT_FALSE(only);
    EXPECT_NE(dropper.lastDump.find("A("), std::string::npos);

    PiTimePath tp(path->copy(), 1.5);
    EXPECT_TRUE(tp == PiTimePath(path->copy(), 1.5));
    EXPECT_FALSE(tp == PiTimePath(tp.getPath(), 2.0));
}

TEST_F(GraphPath, RegistryFindsToolsByNameAndVersion) {
    HoToolRegistry& reg = HoToolRegistry::initialize();
    reg.registerTool(tool("Blur", "1.10"));
    reg.registerTool(tool("Blur", "1.9"));
    reg.registerTool(tool("Hidden", "2", true));
    EXPECT_THROW(reg.registerTool(tool("Blur", "1.9")), ExBase);

    EXPECT_EQ(reg.findTool("Blur")->getVersion(), "1.10") << "versions compare by numbers";
    EXPECT_EQ(reg.findTool("Acme Blur")->getVersion(), "1.10");
    EXPECT_EQ(reg.findTool("Acme Blur", "1.0"), blur);
    EXPECT_FALSE(reg.findTool("Acme Blur", "3.0"));
    EXPECT_FALSE(reg.findTool("Nothing"));

    auto names = [](std::vector<ToolPtr> const& v) {
        std::string s;
        for (auto const& t : v)
            s += t->getName() + "@" + t->getVersion() + " ";
        return s;
    };
    EXPECT_EQ(names(reg.getTools(PiToolRegistry::ALL_TOOLS, PiToolRegistry::LATEST_VERSIONS)),
              "Gen@1.0 Blur@1.10 Hidden@2 ");
    EXPECT_EQ(names(reg.getTools(PiToolRegistry::INTERNAL_TOOLS, PiToolRegistry::ALL_VERSIONS)),
              "Hidden@2 ");
    EXPECT_EQ(names(reg.getTools(PiToolRegistry::PUBLIC_TOOLS, PiToolRegistry::ALL_VERSIONS)),
              "Blur@1.0 Gen@1.0 Blur@1.10 Blur@1.9 ");
    EXPECT_THROW(reg.getTools(PiToolRegistry::SelectionEnum(7), PiToolRegistry::ALL_VERSIONS),
                 ExAssertionFailed);
    EXPECT_TRUE(reg.unregisterTool("Acme Blur", "1.10"));
    EXPECT_EQ(reg.findTool("Blur")->getVersion(), "1.9");
    std::ostringstream os;
    os << PiToolRegistry::getInstance();
    EXPECT_NE(os.str().find("Acme Hidden 2"), std::string::npos);
}

// A description that cannot make sound sockets is refused when the tool is made.
TEST(PiToolDescription, BadDescriptionsAreRefused) {
    PiToolPolicyDescriptor d;
    d.require("a", PiSocketType::IMAGE);
    EXPECT_THROW(d.require("a", PiSocketType::DOUBLE), ExBase);
    EXPECT_THROW(d.require("b.c", PiSocketType::DOUBLE), ExBase);
    EXPECT_THROW(d.require("d", 6), ExBase);
    EXPECT_THROW(d.produces("", PiSocketType::IMAGE), ExBase);
    d.stores("v", PiValueType::Int);
    EXPECT_THROW(d.stores("v", PiValueType::Double), ExBase);
    EXPECT_THROW(d.stores("w", PiValueType(5)), ExBase);
    EXPECT_EQ(d.getInputs().size(), 1u);
}
