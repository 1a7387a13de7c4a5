// The tool graph and the processing graph in step: tools connected in a host graph render what
// their connections say, through every connect, disconnect, undo and redo, and the framework's
// checks catch tools that break its rules.
#include "ExBase.h"
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "HoToolRegistry.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiGroupInterface.h"
#include "PiGroupTopology.h"
#include "PiGroupTopologyInterface.h"
#include "PiNode.h"
#include "PiNodeTopologies.h"
#include "PiProcNodeFactory.h"
#include "PiSockets.h"
#include "PiToolTopologyInterfaceImp.h"
#include "PiValueInterface.h"
#include "PxPassThroughProtocol.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"
#include "RCCbHandler.h"
#include "XmlDocument.h"

#include "ToolGraphFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
using Node = PxStrongHndl<PxNode const>;

constexpr int kW = 24;
constexpr int kH = 12;

Color patternAt(int x, int y, double t) {
    return Vn::patternAt(x, y, kW, kH, t);
}
// The pattern, and the pattern times a gain, at time 0.
Color plain(int x, int y) {
    return patternAt(x, y, 0);
}
std::function<Color(int, int)> gained(float k) {
    return [k](int x, int y) {
        return HoGainNode::gain(patternAt(x, y, 0), k);
    };
}

class ToolTopologyTest : public ToolGraphFixture {
protected:
    RCShdPtr<PiToolNode> add(RCShdPtr<PiTool const> const& tool, std::string const& name) {
        return addTool(tool, name, kW, kH);
    }
    RCShdPtr<PiToolNode> pattern(std::string const& name) {
        return add(HoTools::testPattern(), name);
    }
    static RCShdPtr<PiTopologyInterface> topo(RCShdPtr<PiToolNode> const& n) {
        return rcCast<PiTopologyInterface>(n->getController().lock());
    }
    static Node output(RCShdPtr<PiToolNode> const& n) {
        return topo(n)->getOutputProcNode(n->findOutput("Output")).lock();
    }
    static HoImage render(Node const& n, double t = 0.0) {
        auto const* image = dynamic_cast<PxImageProtocol const*>(n.get());
        EXPECT_NE(image, nullptr);
        return HoRenderer::renderFrame(PxStrongHndl<PxImageProtocol const>(image), t);
    }
    // Every pixel of the image against what the tools should make of the pattern.
    static void expectImage(HoImage const& img, std::function<Color(int, int)> const& want,
                            std::string const& where) {
        ASSERT_EQ(img.width, kW) << where;
        ASSERT_EQ(img.height, kH) << where;
        EXPECT_EQ(mismatches(img, want, 1e-6f), 0) << where;
    }
};

// Pattern -> Gain -> Over.Front, Pattern2 -> Over.Back: the pixels follow every edit, read
// through the same output node, which keeps its identity.
TEST_F(ToolTopologyTest, ConnectionsRewireProcessing) {
    auto a = pattern("A");
    auto b = pattern("B");
    auto gain = add(HoTools::gain(), "G");
    auto over = add(HoTools::over(), "O");
    set<double>(gain, "Gain", 0.5);
    connect(a, gain, "Source");
    connect(gain, over, "Front");
    connect(b, over, "Back");
    // Read through one socket wrapper on Over's output, kept across every edit.
    PiImageSocket<PiOutput> const socket(over->findOutput("Output"));
    Node const out = socket.getNode();
    EXPECT_EQ(out.get(), output(over).get());
    auto const both = [](int x, int y) {
        return HoOverNode::over(HoGainNode::gain(patternAt(x, y, 0), 0.5f), patternAt(x, y, 0));
    };
    auto const backOnly = plain;
    expectImage(render(out), both, "connected");

    PiCommandStack& stack = graph->getCommandStack();
    {
        PiUndoGuard guard(*graph, "Disconnect");
        over->findInput("Front")->disconnect();
    }
    struct Step {
        char const* what;
        std::function<void()> run;
        std::function<Color(int, int)> want;
    };
    std::vector<Step> const steps = {
        {"disconnected", [] {}, backOnly},
        {"undo", [&] { stack.undo(); }, both},
        {"redo", [&] { stack.redo(); }, backOnly},
        {"undo again", [&] { stack.undo(); }, both},
        {"gain edited", [&] { set<double>(gain, "Gain", 2.0); },
         [](int x, int y) {
             return HoOverNode::over(HoGainNode::gain(patternAt(x, y, 0), 2.0f),
                                     patternAt(x, y, 0));
         }},
    };
    for (Step const& s : steps) {
        s.run();
        expectImage(render(socket.getNode()), s.want, s.what);
        EXPECT_EQ(output(over).get(), out.get()) << s.what;
    }
}

// Asking the consumer first or the producer first builds the same graph, and a long chain
// builds without recursion.
// The socket wrappers read what stands behind a socket: values at a time, an image's format,
// frame and tiles; ALLOW_NULL lets a wrapper stand for nothing.
TEST_F(ToolTopologyTest, SocketWrappersReadTheProcessingGraph) {
    auto a = pattern("A");
    auto g = add(HoTools::gain(), "G");
    connect(a, g, "Source");
    using DoubleIn = PiTypedAnimSocket<double, PiInput>;
    using IntIn = PiTypedAnimSocket<int, PiInput>;
    set<double>(g, "Gain", 250.0);
    EXPECT_EQ(DoubleIn(g->findInput("Gain")).getValue(3.0), 250.0);
    set<double>(g, "Gain", 5000.0); // beyond the policy's range: the tool sees its top
    EXPECT_EQ(DoubleIn(g->findInput("Gain")).getValue(0.0), 1000.0);
    EXPECT_EQ(IntIn(a->findInput("Width")).getValue(0.0), kW);

    RCShdPtr<PiOutput const> const out = g->findOutput("Output");
    PiImageSocket<PiOutput> whole(out);
    EXPECT_EQ(whole.getFormat().getPixelFormat().getDepth(), IxPixelFormat::FLOAT32);
    PxRODResult const rod = whole.getROD(0.5, 0);
    EXPECT_EQ(rod.getROD().width(), kW);
    EXPECT_EQ(whole.getROD(DtTimeIndex(12), 0).getROD(), rod.getROD());
    struct Case {
        char const* what;
        PiImageSocket<PiOutput> socket;
        int tiles;
    };
    for (Case const& c :
         {Case{"whole", PiImageSocket<PiOutput>(out), 1},
          Case{"empty rectangle", PiImageSocket<PiOutput>(out, GeRectangle<int>{0, 0, 0, 5}), 1},
          Case{"rectangle", PiImageSocket<PiOutput>(out, GeRectangle<int>{0, 0, 4, 4}), 1},
          Case{"tile outside the frame", PiImageSocket<PiOutput>(out, GeVector2<int>{1, 0}), 0}}) {
        RCShdPtr<PxImageResults> const results = c.socket.getValue(PxTimeInfo(0.0));
        ASSERT_TRUE(results) << c.what;
        EXPECT_EQ(static_cast<int>(results->size()), c.tiles) << c.what;
    }

    PiImageSocket<PiInput> none(RCShdPtr<PiInput const>(), 0, PiCheckNull::ALLOW_NULL);
    EXPECT_TRUE(none.isNull());
    EXPECT_THROW(PiImageSocket<PiInput>(RCShdPtr<PiInput const>()), ExBase);
    // A socket of another kind: empty with ALLOW_NULL, refused without; reading the empty one
    // runs the request on no node.
    PiTypedAnimSocket<double, PiOutput> wrongKind(out, PiCheckNull::ALLOW_NULL);
    EXPECT_TRUE(wrongKind.isNull());
    EXPECT_THROW(wrongKind.getValue(0.0), ExBase);
    EXPECT_THROW((PiTypedAnimSocket<double, PiOutput>(out)), ExBase);

    RCShdPtr<PiNode> valueNode = g->findInput("Gain")->getConnectedOutput()->retrieveNode();
    PiTypedValueUtil<double> value(valueNode->findValue(PiValueNode::VALUE_NAME));
    value.set(2.0);
    EXPECT_EQ(PiConstTypedValueUtil<double>(valueNode->findValue(PiValueNode::VALUE_NAME)).get(),
              2.0);
    EXPECT_THROW(PiTypedValueUtil<int>(valueNode->findValue(PiValueNode::VALUE_NAME)), ExBase);
    PiTypedValueUtil<int> empty(valueNode->findValue(PiValueNode::VALUE_NAME),
                                PiCheckNull::ALLOW_NULL);
    EXPECT_THROW(empty.get(), ExBase);
}

TEST_F(ToolTopologyTest, BuildsLazilyFromEitherEnd) {
    for (bool consumerFirst : {true, false}) {
        SCOPED_TRACE(consumerFirst ? "consumer first" : "producer first");
        TearDown();
        SetUp();
        auto a = pattern("A");
        std::vector<RCShdPtr<PiToolNode>> chain{a};
        for (int i = 0; i < 3; ++i) {
            auto g = add(HoTools::gain(), "G" + std::to_string(i));
            set<double>(g, "Gain", 0.5);
            chain.push_back(g);
        }
        // Connections made after the nodes, leaving each unbuilt until asked.
        for (std::size_t i = 1; i < chain.size(); ++i)
            chain[i]->findInput("Source")->connect(chain[i - 1]->findOutput("Output"));
        if (!consumerFirst)
            output(a);
        expectImage(render(output(chain.back())), gained(0.125f), "chain");
    }
}

TEST_F(ToolTopologyTest, LongChainBuildsAndRenders) {
    // Long runs set the length through the environment.
    char const* asked = std::getenv("VN_TOOL_CHAIN_LENGTH");
    int const kLength = asked ? std::atoi(asked) : 1000;
    auto a = pattern("A");
    RCShdPtr<PiToolNode> last = a;
    auto const start = std::chrono::steady_clock::now();
    for (int i = 0; i < kLength; ++i) {
        auto g = add(HoTools::gain(), "G" + std::to_string(i));
        g->findInput("Source")->connect(last->findOutput("Output"));
        last = g;
    }
    HoImage const img = render(output(last));
    auto const ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start);
    RecordProperty("chain_ms", std::to_string(ms.count()));
    expectImage(img, plain, "gain 1 along the chain");
}

// A tool that asks for its own output while it builds gets a placeholder; publishing re-childs
// it, and the handle then serves the tool's pixels.
TEST_F(ToolTopologyTest, PlaceholderHandlesServeThePublishedNode) {
    struct Early final : HoToolController {
        Node early;
        ~Early() noexcept override {}
        void createProcNodes(OutputPublisher& p) override {
            early = getOutputProcNode(getNode()->findOutput("Output")).lock();
            p.publish("Output", p.getInputNode("Source"));
        }
    };
    Early* early = nullptr;
    auto a = pattern("A");
    auto e = root->createToolNode(
        testTool({"Early"}, imageSockets({"Source"}), [&] { return early = new Early; }), "E");
    connect(a, e, "Source");
    ASSERT_TRUE(early && early->early);
    EXPECT_EQ(output(e).get(), early->early.get());
    expectImage(render(early->early), plain, "re-childed");
}

// A tool inside a group renders through the group's boundaries what it renders outside, and a
// consumer outside reads the group's output; edits inside reach it.
TEST_F(ToolTopologyTest, GroupsRenderThroughTheirBoundaries) {
    auto a = pattern("A");
    RCShdPtr<PiGroupNode> group = root->createGroupNode("Look");
    RCShdPtr<PiInput> gin = group->addDynamicInput("gin", PiSocketType::IMAGE);
    RCShdPtr<PiOutput> gout = group->addDynamicOutput("gout", PiSocketType::IMAGE);
    auto boundary = [](RCShdPtr<PiSocket> const& socket) {
        return rcCast<PiBoundaryNode>(socket->retrieveNode());
    };
    RCShdPtr<PiToolNode> inner = group->createToolNode(HoTools::gain(), "G");
    set<double>(inner, "Gain", 0.5);
    auto outside = add(HoTools::gain(), "Outside"); // a gain of 1 keeps the pixels
    {
        PiUndoGuard guard(*graph, "Wire");
        gin->connect(a->findOutput("Output"));
        inner->findInput("Source")->connect(boundary(gin)->getOutput());
        boundary(gout)->getInput()->connect(inner->findOutput("Output"));
        outside->findInput("Source")->connect(gout);
    }
    auto const half = gained(0.5f);
    // The group's output seen from outside, and what a consumer outside makes of it.
    auto groupTopo = rcCast<PiTopologyInterface>(group->getController().lock());
    expectImage(render(groupTopo->getOutputProcNode(gout).lock()), half, "group output");
    expectImage(render(output(outside)), half, "through the group");
    set<double>(inner, "Gain", 2.0);
    expectImage(render(output(outside)), gained(2.0f), "edited inside");
    graph->getCommandStack().undo(); // the edit
    graph->getCommandStack().undo(); // the wiring
    EXPECT_EQ(render(output(outside)).width, 0) << "unwired: nothing to show";
}

// A group may put its own nodes behind an output: separate inner and outer faces joined by a
// chain of single parents (here a gain of 0.5). Consumers outside read the chain's end; a chain
// that does not reach the inner face is caught.
TEST_F(ToolTopologyTest, GroupsPublishTheirOwnOutputNodes) {
    class Halving final : public PiGroupInterface, public PiGroupTopologyInterface {
    public:
        explicit Halving(bool joined)
            : _imp(PiGroupTopology::createGroupImp(*this)), _joined(joined) {}
        ~Halving() noexcept override {}
        Imp* getImp() override { return _imp.get(); }
        void createOutputProcNode(PiBoundaryPublisher& publisher, RCShdPtr<PiOutput> const& out,
                                  Node const& child) override {
            Node const inner = PiProcNodeFactory::createPassThroughNode(out->getType(), child);
            auto const half = initialised<PxStrongHndl<PxAnimValueProtocol<double> const>>(
                new PxConstantAnimValueNode<double>(PxNode::Init{"half"}, PxResult<double>(0.5)));
            Node const gain = initialised<Node>(new HoGainNode(
                PxNode::Init{"gain"},
                PxStrongHndl<PxImageProtocol const>(
                    dynamic_cast<PxImageProtocol const*>(_joined ? inner.get() : child.get())),
                half));
            publisher.publish(inner,
                              PiProcNodeFactory::createPassThroughNode(out->getType(), gain));
        }

    private:
        std::unique_ptr<Imp> _imp;
        bool _joined;
    };
    struct Factory final : PiNodeControllerFactory {
        RCShdPtr<PiNodeController> createGroupController(PiTool const* tool) override {
            if (!tool)
                return PiGroupTopology::createGroupController(tool);
            return RCShdPtr<PiNodeController>(new Halving(tool->getName() == "Gain"));
        }
        RCShdPtr<PiNodeController> createBoundaryController() override {
            return PiGroupTopology::createBoundaryController();
        }
        RCShdPtr<PiNodeController> createValueController(PiSocketType type) override {
            return PiNodeTopologies::createController(type);
        }
    };
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new Factory));
    auto a = pattern("A");
    auto const wrap = [&](RCShdPtr<PiTool const> const& tool, std::string const& name) {
        RCShdPtr<PiGroupNode> const group = root->createGroupNode(name, tool);
        RCShdPtr<PiInput> const in = group->findInput("Source");
        RCShdPtr<PiOutput> const out = group->findOutput("Output");
        PiUndoGuard guard(*graph, "Wire");
        in->connect(a->findOutput("Output"));
        rcCast<PiBoundaryNode>(out->retrieveNode())
            ->getInput()
            ->connect(rcCast<PiBoundaryNode>(in->retrieveNode())->getOutput());
        auto outside = add(HoTools::gain(), name + "Outside");
        outside->findInput("Source")->connect(out);
        return outside;
    };
    expectImage(render(output(wrap(HoTools::gain(), "Joined"))), gained(0.5f), "joined");
    EXPECT_THROW(render(output(wrap(HoTools::over(), "Apart"))), ExBase);
}

// One value node shared by two tools and driven by an expression that reads a value another
// consumer also reads: the build comes back to a tool still building, and faces stand for it.
TEST_F(ToolTopologyTest, SharedValueDrivenByAnExpressionRenders) {
    // 2x, evaluated on the workers.
    class Twice final : public PxAnimValueProtocol<double> {
    public:
        Twice(PxStrongHndl<PxAnimValueProtocol<double> const> x)
            : PxNode(PxNode::Init{"twice"}), _x(std::move(x)) {
            registerChild(_x);
        }
        ~Twice() noexcept override {}
        PxResult<double> getValue(PxTimeContext const& context) const override {
            PxResult<double> const x = _x->getValue(context);
            return PxResult<double>(2.0 * x.getValue(), x.getValidityInterval());
        }

    private:
        PxStrongHndl<PxAnimValueProtocol<double> const> _x;
    };
    struct Controller final : HoToolController {
        ~Controller() noexcept override {}
        void createProcNodes(OutputPublisher& p) override {
            p.publish("Output", initialised<Node>(new Twice(doubleInput(p, "x"))));
        }
    };
    auto a = pattern("A");
    auto t1 = add(HoTools::gain(), "T1");
    auto t2 = add(HoTools::gain(), "T2");
    auto t3 = add(HoTools::gain(), "T3");
    auto const sockets = [](PiToolPolicyDescriptor& d) {
        d.require("x", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::DOUBLE);
    };
    auto e = root->createToolNode(testTool({"Twice"}, sockets, [] { return new Controller; }), "E");
    auto valueOf = [](RCShdPtr<PiNode> const& n, std::string const& input) {
        return rcCast<PiValueNode>(n->findInput(input)->getConnectedOutput()->retrieveNode());
    };
    set<double>(t2, "Gain", 1.5);
    RCShdPtr<PiValueNode> const w = valueOf(t2, "Gain"), v = valueOf(t1, "Gain");
    {
        PiUndoGuard guard(*graph, "Wire");
        connect(a, t1, "Source");
        connect(t1, t2, "Source");
        connect(t2, t3, "Source");
        e->findInput("x")->connect(w->getOutput());      // w: read by E and by T2
        v->getInput()->connect(e->findOutput("Output")); // v = 2w, shared by T1 and T3
        t3->findInput("Gain")->connect(v->getOutput());
    }
    expectImage(
        render(output(t3)),
        [](int x, int y) {
            return HoGainNode::gain(
                HoGainNode::gain(HoGainNode::gain(patternAt(x, y, 0), 3.0f), 1.5f), 3.0f);
        },
        "2w, w, 2w");
    set<double>(t2, "Gain", 0.5);
    expectImage(
        render(output(t3)),
        [](int x, int y) {
            return HoGainNode::gain(
                HoGainNode::gain(HoGainNode::gain(patternAt(x, y, 0), 1.0f), 0.5f), 1.0f);
        },
        "after an edit of w");
}

// A group whose second input is fed by a tool that reads what feeds its first: each boundary
// stands before its source is built, so the two builds meet without a fault.
TEST_F(ToolTopologyTest, GroupInputsSharingASourceRender) {
    auto a = pattern("A");
    auto x = add(HoTools::gain(), "X");
    set<double>(x, "Gain", 0.5);
    RCShdPtr<PiGroupNode> group = root->createGroupNode("Merge");
    RCShdPtr<PiInput> back = group->addDynamicInput("back", PiSocketType::IMAGE);
    RCShdPtr<PiInput> front = group->addDynamicInput("front", PiSocketType::IMAGE);
    RCShdPtr<PiOutput> out = group->addDynamicOutput("out", PiSocketType::IMAGE);
    auto inner = [](RCShdPtr<PiSocket> const& s) {
        return rcCast<PiBoundaryNode>(s->retrieveNode());
    };
    RCShdPtr<PiToolNode> over = group->createToolNode(HoTools::over(), "O");
    auto outside = add(HoTools::gain(), "Outside");
    {
        PiUndoGuard guard(*graph, "Wire");
        over->findInput("Back")->connect(inner(back)->getOutput());
        over->findInput("Front")->connect(inner(front)->getOutput());
        inner(out)->getInput()->connect(over->findOutput("Output"));
        outside->findInput("Source")->connect(out);
        // Last, the sources: the front's tool reads what feeds the back.
        back->connect(a->findOutput("Output"));
        x->findInput("Source")->connect(a->findOutput("Output"));
        front->connect(x->findOutput("Output"));
    }
    expectImage(
        render(output(outside)),
        [](int px, int py) {
            Color const p = patternAt(px, py, 0);
            return HoOverNode::over(HoGainNode::gain(p, 0.5f), p);
        },
        "through the group");
}

// A value node whose input is driven by another's output follows it; cut, it gives its own
// value again, without a moment of the type's null value.
TEST_F(ToolTopologyTest, ValueNodesFollowWhatDrivesThem) {
    auto g = add(HoTools::gain(), "G");
    auto h = add(HoTools::gain(), "H");
    set<double>(g, "Gain", 3.0);
    set<double>(h, "Gain", 7.0);
    auto valueNodeOf = [](RCShdPtr<PiToolNode> const& n) {
        return rcCast<PiValueNode>(n->findInput("Gain")->getConnectedOutput()->retrieveNode());
    };
    auto gain = [&] {
        return PiTypedAnimSocket<double, PiInput>(g->findInput("Gain")).getValue(0);
    };
    EXPECT_EQ(gain(), 3.0);
    {
        PiUndoGuard guard(*graph, "Drive");
        valueNodeOf(g)->getInput()->connect(valueNodeOf(h)->getOutput());
    }
    EXPECT_EQ(gain(), 7.0);
    set<double>(h, "Gain", 9.0);
    EXPECT_EQ(gain(), 9.0);
    set<double>(g, "Gain", 4.0); // its own value waits while it is driven
    EXPECT_EQ(gain(), 9.0);
    graph->getCommandStack().undo();
    graph->getCommandStack().undo();
    graph->getCommandStack().undo(); // the drive
    EXPECT_EQ(gain(), 3.0);

    // A constant set on a driven value cuts the drive. A driver that another tool reads stays;
    // one that fed this value alone goes with the cut, and comes back on undo.
    {
        PiUndoGuard guard(*graph, "Drive");
        valueNodeOf(g)->getInput()->connect(valueNodeOf(h)->getOutput());
    }
    RCShdPtr<PiValueNode> const driven = valueNodeOf(g), driver = valueNodeOf(h);
    std::string const driverName = driver->getNodeName();
    auto const constant = [&](double v) {
        rcCast<PiAnimValueInterface<double>>(driven->getController().lock())->setValue(v);
    };
    constant(5.0);
    EXPECT_EQ(gain(), 5.0);
    EXPECT_FALSE(driven->getInput()->isConnected());
    EXPECT_TRUE(root->findNode(driverName)) << "H still reads it";
    graph->getCommandStack().undo();
    EXPECT_EQ(gain(), 7.0);
    {
        PiUndoGuard guard(*graph, "Remove");
        root->removeNode(h);
    }
    ASSERT_TRUE(root->findNode(driverName)) << "it still feeds G";
    constant(6.0);
    EXPECT_EQ(gain(), 6.0);
    EXPECT_FALSE(root->findNode(driverName));
    graph->getCommandStack().undo();
    EXPECT_TRUE(root->findNode(driverName));
    EXPECT_EQ(gain(), 7.0);
}

// A consumer of a link renders the linked graph's output, the generator's while that graph is
// closed, and the output again on refresh, through the same handle.
TEST_F(ToolTopologyTest, LinksFollowTheLinkedGraph) {
    RCShdPtr<PiGraph> const other = HoGraph::create("plate");
    RCShdPtr<PiToolNode> const p =
        other->getRootNode()->createToolNode(HoTools::testPattern(), "P");
    set<int>(p, "Width", kW);
    set<int>(p, "Height", kH);
    RCShdPtr<PiLinkNode> const link =
        root->createLinkNode("L", PiSocketType::IMAGE, RCShdPtr<PiSocket>(p->findOutput("Output")));
    auto g = add(HoTools::gain(), "G");
    g->findInput("Source")->connect(link->getOutput());
    Node const out = output(g);
    auto const plate = plain;
    expectImage(render(out), plate, "linked");
    other->close();
    EXPECT_EQ(render(out).width, 0) << "closed: the generator";
    other->refresh();
    expectImage(render(out), plate, "refreshed");

    // No processing cycle across graphs: a link may not stand for a socket that reads it, and a
    // connection may not close a loop through links.
    EXPECT_THROW(link->setTargetSocket(g->findOutput("Output")), ExBase);
    RCShdPtr<PiToolNode> const k = other->getRootNode()->createToolNode(HoTools::gain(), "K");
    k->findInput("Source")->connect(p->findOutput("Output"));
    link->setTargetSocket(k->findOutput("Output"));
    RCShdPtr<PiLinkNode> const back = other->getRootNode()->createLinkNode(
        "Back", PiSocketType::IMAGE, RCShdPtr<PiSocket>(g->findOutput("Output")));
    EXPECT_THROW(k->findInput("Source")->connect(back->getOutput()), ExBase);
    expectImage(render(out), plate, "a gain of 1 through K");
    auto topo = rcCast<PiTopologyInterface>(link->getController().lock());
    try {
        topo->getImp()->getInputProcNode(std::string("x"));
        ADD_FAILURE() << "a link has no inputs";
    } catch (ExBase const& e) {
        EXPECT_NE(std::string(e.what()).find("Link nodes don't have inputs"), std::string::npos);
    }
}

// Keys set through a socket wrapper reach the workers: the pixels between keys follow the
// curve, valid for less than the span between the keys; the animation survives an archive;
// undo of the first key makes the value constant again; a change tried out between keys is
// undone by a reset.
TEST_F(ToolTopologyTest, AnimationReachesTheWorkers) {
    auto a = pattern("A");
    auto g = add(HoTools::gain(), "G");
    connect(a, g, "Source");
    PiTypedAnimInput<double> const gain(g->findInput("Gain"));
    gain.setKey(0.0, 1.0);
    gain.setKey(1.0, 2.0);
    auto controller = rcCast<PiAnimInterface>(
        g->findInput("Gain")->getConnectedOutput()->retrieveNode()->getController().lock());
    double const mid = controller->getMasterTimeCurve()->evaluate(0.5);
    EXPECT_GT(mid, 1.0);
    EXPECT_LT(mid, 2.0);
    auto const at = [](double k) {
        return [k](int x, int y) {
            return HoGainNode::gain(patternAt(x, y, 0.5), float(k));
        };
    };
    expectImage(render(output(g), 0.5), at(mid), "between the keys");
    PiImageSocket<PiOutput> const socket(g->findOutput("Output"));
    RCShdPtr<PxImageResults> const tiles = socket.getValue(PxTimeInfo(0.5));
    ASSERT_FALSE(tiles->empty());
    PxValidityInterval const vi = (*tiles)[0].getValidityInterval();
    EXPECT_TRUE(vi.contains(0.5));
    EXPECT_LT(vi.getHigh() - vi.getLow(), 1.0);

    // The same pixels from the archive, read into a fresh graph.
    HoTools::registerTools(HoToolRegistry::initialize());
    XmlWriter w;
    graph->archiveNodes({a, g, g->findInput("Gain")->getConnectedOutput()->retrieveNode(),
                         a->findInput("Width")->getConnectedOutput()->retrieveNode(),
                         a->findInput("Height")->getConnectedOutput()->retrieveNode()},
                        w);
    {
        RCShdPtr<PiGraph> const fresh = HoGraph::create("fresh");
        XmlDocument const doc = XmlDocument::parse(w.toString());
        RCShdPtr<PiToolNode> copy;
        for (auto const& n : fresh->unarchiveNodes(doc.getRoot(), fresh->getRootNode()))
            if (n->getNodeName() == "G")
                copy = rcCast<PiToolNode>(n);
        ASSERT_TRUE(copy);
        expectImage(render(output(copy), 0.5), at(mid), "read back");
    }
    HoToolRegistry::finalize();

    // Tried out between the keys, then reset.
    gain.setValue(0.25, 5.0);
    EXPECT_TRUE(controller->isDiddling());
    EXPECT_FALSE(controller->hasKey(0.25));
    EXPECT_EQ(gain.getValue(0.25), 5.0);
    controller->resetValue();
    EXPECT_FALSE(controller->isDiddling());
    EXPECT_EQ(gain.getValue(0.5), mid);

    // The default types: stored only when they differ from the curve's own, and taken by new
    // curves; a curve given whole animates the value.
    RCShdPtr<PiNode> const valueNode = g->findInput("Gain")->getConnectedOutput()->retrieveNode();
    controller->setDefaultExtrapolationType(TcTimeCurve::DEFAULT_EXTRAPOLATION);
    EXPECT_FALSE(valueNode->findValue("DefaultExtrapolation"));
    controller->setDefaultExtrapolationType(TcTimeCurve::EXTRAP_LINEAR);
    EXPECT_EQ(controller->getDefaultExtrapolationType(), TcTimeCurve::EXTRAP_LINEAR);
    EXPECT_THROW(controller->setDefaultInterpolationType(42), ExBase);
    RCPvtEngPtr<TcTimeCurve> ramp(
        new TcTimeCurve(TcTimeCurve::EXTRAP_LINEAR, TcTimeCurve::INTERP_LINEAR));
    ramp->setKey(0.0, 0.0);
    ramp->setKey(2.0, 4.0);
    controller->setCurve(ramp);
    EXPECT_EQ(gain.getValue(3.0), 6.0); // linear beyond the last key
    graph->getCommandStack().undo();
    EXPECT_EQ(gain.getValue(0.5), mid);

    // Back to before the first key: constant at the value it had.
    PiCommandStack& stack = graph->getCommandStack();
    while (controller->isAnimated() && stack.canUndo())
        stack.undo();
    EXPECT_FALSE(controller->isAnimated());
    EXPECT_EQ(gain.getValue(0.5), 1.0);
}

// Changes made while changes accumulate wait for the end of the outermost scope and reach the
// workers together; outside a scope they arrive at once.
TEST_F(ToolTopologyTest, HeldBackChangesArriveTogether) {
    auto a = pattern("A");
    auto g = add(HoTools::gain(), "G");
    auto h = add(HoTools::gain(), "H");
    connect(a, g, "Source");
    connect(g, h, "Source");
    PiTypedAnimInput<double> const gainG(g->findInput("Gain")), gainH(h->findInput("Gain"));
    gainG.setKey(0.0, 1.0); // one animated, one constant: both controllers' paths
    auto const expectGains = [&](float kg, float kh, char const* where) {
        expectImage(
            render(output(h)),
            [&](int x, int y) {
                return HoGainNode::gain(HoGainNode::gain(patternAt(x, y, 0), kg), kh);
            },
            where);
    };
    expectGains(1.0f, 1.0f, "before");
    {
        PiAnimInterface::AccumulateChanges outer;
        {
            PiAnimInterface::AccumulateChanges inner;
            gainG.setKey(0.0, 2.0);
        }
        gainH.setValue(3.0);
        EXPECT_TRUE(PiAnimInterface::isAccumulatingChanges());
        expectGains(1.0f, 1.0f, "held back");
    }
    EXPECT_FALSE(PiAnimInterface::isAccumulatingChanges());
    expectGains(2.0f, 3.0f, "sent together");
    gainH.setValue(0.5);
    expectGains(2.0f, 0.5f, "sent at once");
    EXPECT_THROW(PiAnimInterface::addChangeFunctor(nullptr, PxValidityInterval::FULL), ExBase);
}

// Time Offset shows its source's frame that many frames on (or back), and follows its edits.
TEST_F(ToolTopologyTest, TimeOffsetShowsAnotherFrame) {
    auto a = pattern("A");
    auto t = add(HoTools::timeOffset(), "T");
    connect(a, t, "Source");
    double const frame = 1.0 / 25.0; // the pattern's rate
    for (int offset : {2, -3}) {
        set<int>(t, "Offset", offset);
        expectImage(
            render(output(t), 5 * frame),
            [&](int x, int y) { return patternAt(x, y, (5 + offset) * frame); },
            "offset " + std::to_string(offset));
    }
}

// The chain check follows single parents from a tool's input node to its output node.
TEST_F(ToolTopologyTest, ChainCheckFollowsSingleParents) {
    auto a = pattern("A");
    auto g = add(HoTools::gain(), "G");
    connect(a, g, "Source");
    Node const in = topo(g)->getInputProcNode(g->findInput("Source")).lock();
    PiToolTopologyInterfaceImp::assertChainConnected(in, output(g));
    EXPECT_THROW(PiToolTopologyInterfaceImp::assertChainConnected(in, in), ExBase);
    auto b = add(HoTools::gain(), "G2");
    connect(a, b, "Source"); // the pattern's output now has two consumers
    EXPECT_THROW(PiToolTopologyInterfaceImp::assertChainConnected(output(a), in), ExBase);
}

// Handlers on an output's pass-through hear of a value edit upstream and of a connection.
TEST_F(ToolTopologyTest, InvalidationReachesConsumers) {
    auto a = pattern("A");
    auto g = add(HoTools::gain(), "G");
    connect(a, g, "Source");
    Node const out = output(g);
    std::atomic<int> heard{0};
    using Info = PxPassThroughProtocol::InvalidationInfo const;
    auto handler = makeRCCbHandler<Info>([&](Info&) { ++heard; });
    auto const* through = dynamic_cast<PxPassThroughProtocol const*>(out.get());
    ASSERT_NE(through, nullptr);
    PxMutationRequest::submit(new PxAddInvalidateCbRequest(
        PxUPtr<PxPassThroughProtocol>(
            PxStrongHndl<PxPassThroughProtocol>(const_cast<PxPassThroughProtocol*>(through))),
        handler));
    PxRequestMgr::getInstance().sync();
    struct Case {
        char const* what;
        std::function<void()> edit;
    };
    auto b = pattern("B");
    std::vector<Case> const cases = {{"value",
                                      [&] {
                                          set<double>(g, "Gain", 3.0);
                                      }},
                                     {"connect",
                                      [&] {
                                          connect(b, g, "Source");
                                      }},
                                     {"upstream value", [&] {
                                          set<int>(b, "Width", 8);
                                      }}};
    for (Case const& c : cases) {
        int const before = heard.load();
        c.edit();
        PxRequestMgr::getInstance().sync();
        EXPECT_GT(heard.load(), before) << c.what;
    }
}

// The framework's checks catch a tool that leaves an input unused or an output unpublished;
// the failure reaches the caller, and the graph renders again once the tool behaves.
TEST_F(ToolTopologyTest, ChecksCatchBrokenToolsAndRecover) {
    enum Fault { NONE, UNUSED_INPUT, UNPUBLISHED, THROWS, EDITS };
    static Fault s_fault = NONE;
    struct Picky final : HoToolController {
        void createProcNodes(OutputPublisher& p) override {
            switch (s_fault) {
            case UNUSED_INPUT:
                p.publish("Output", p.getInputNode("Back"));
                return;
            case UNPUBLISHED:
                return;
            case THROWS:
                VN_THROW_MSG(ExBase, "the tool failed");
            case EDITS:
                getNode()->setNodeName("Renamed");
                return;
            case NONE:
                p.publish("Output", p.getInputNode("Front"));
                p.disableParentCheck();
            }
        }
    };
    RCShdPtr<PiTool const> const picky =
        testTool({"Picky"}, imageSockets({"Front", "Back"}), [] { return new Picky; });
    struct Case {
        Fault fault;
        char const* reason; // in the failure's text
    };
    for (Case const& c : std::vector<Case>{{UNUSED_INPUT, "getNbParents() > 0"},
                                           {UNPUBLISHED, "_outputsToVisit.empty()"},
                                           {THROWS, "the tool failed"},
                                           {EDITS, "while building its processing nodes"}}) {
        SCOPED_TRACE(c.reason);
        TearDown();
        SetUp();
        s_fault = c.fault;
        auto a = pattern("A");
        auto p = root->createToolNode(picky, "P");
        a->findInput("Width"); // the pattern is built on its own
        try {
            p->findInput("Front")->connect(a->findOutput("Output"));
            output(p);
            ADD_FAILURE() << "no failure";
        } catch (ExBase const& e) {
            EXPECT_NE(std::string(e.what()).find(c.reason), std::string::npos) << e.what();
        }
        s_fault = NONE;
        expectImage(render(output(p)), plain, "fixed");
    }
}

// Changes of a tool's inputs under one guard rebuild it once, at the guard's end.
TEST_F(ToolTopologyTest, GuardCoalescesRebuilds) {
    static int s_builds = 0;
    struct Counting final : HoToolController {
        void createProcNodes(OutputPublisher& p) override {
            ++s_builds;
            p.disableParentCheck();
            p.publish("Output", p.getInputNode("Source"));
        }
    };
    auto const sockets = [](PiToolPolicyDescriptor& d) {
        imageSockets({"Source"})(d);
        d.require("Layers", PiSocketType::IMAGE, {}, PiSocketType::MULTIVALUED);
    };
    auto n = root->createToolNode(testTool({"Layers"}, sockets, [] { return new Counting; }), "L");
    output(n);
    auto layers = rcCast<PiMultivaluedInput>(n->findInput("Layers"));
    auto& controller = dynamic_cast<PiToolTopologyInterface&>(*topo(n));
    int const before = s_builds;
    {
        PiCreateProcGuard guard(controller);
        for (int i = 0; i < 3; ++i)
            layers->insertInput(i);
        EXPECT_EQ(s_builds, before);
    }
    EXPECT_EQ(s_builds, before + 1);
    // Without a guard each change rebuilds.
    layers->insertInput(0);
    EXPECT_EQ(s_builds, before + 2);
    auto& imp = dynamic_cast<PiToolTopologyInterfaceImp&>(*topo(n)->getImp());
    EXPECT_EQ(imp.getInputNodes().size(), 5u); // Source and four layers
    layers->removeInput(0);
    EXPECT_EQ(imp.getInputNodes().size(), 4u);
}

} // namespace
