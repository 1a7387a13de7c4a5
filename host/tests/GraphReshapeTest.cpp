// The graph as the tool framework uses it: the graph's controller, open event classes, roles,
// element identity in multi-valued inputs, clones across graphs and the order of hooks.

#include "GraphTestSupport.h"

#include "ExBase.h"
#include "XmlDocument.h"

#include <algorithm>
#include <functional>
#include <map>

namespace Vn::GraphTest {
namespace {

// What a composition's interface looks like to the library: a mix-in of a node controller.
class CompositionLike : public virtual PiNodeController {
public:
    virtual std::string describe() const = 0;
};

class CompositionController final : public CompositionLike, public PiGroupInterface {
public:
    std::string describe() const override { return "comp of " + nameOf(*this); }
    void send(PiNodeEvent const& e) { signalEvent(e); }
};

class FrameChanged final : public PiNodeEvent {
public:
    explicit FrameChanged(int f) : PiNodeEvent(Custom), frame(f) {}
    int frame;
};

struct EventCatcher final : CbHandler<PiNodeEvent> {
    void execute(PiNodeEvent const& e) override {
        auto const* f = dynamic_cast<FrameChanged const*>(&e);
        frames.push_back(f ? f->frame : -1);
    }
    std::vector<int> frames;
};

TEST_F(GraphFixture, TheGraphsControllerIsItsRootsAndCarriesSubclassedEvents) {
    RCShdPtr<PiGraph> made;
    int calls = 0;
    RCShdPtr<PiGraph> g = HoGraph::create("shot", "Composition", [&](PiGraph& gr) {
        ++calls;
        made = RCShdPtr<PiGraph>(&gr); // the factory may hold the graph and drop it
        made.reset();
        return RCShdPtr<PiNodeController>(new CompositionController);
    });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(g->getRole(), "Composition");
    auto* comp = dynamic_cast<CompositionLike*>(g->getController().get());
    ASSERT_NE(comp, nullptr);
    EXPECT_EQ(comp->describe(), "comp of shot");
    EXPECT_TRUE(PiGraphObject::areEqual(comp->getNode(), g->getRootNode()));
    // One holder: the root node. The graph hands out the same object each time.
    EXPECT_EQ(g->getController().get(), g->getRootNode()->getController().lock().get());

    EventCatcher catcher;
    g->getRootNode()->addEventHandler(&catcher);
    auto& cc = dynamic_cast<CompositionController&>(*g->getController());
    cc.send(FrameChanged(12));
    cc.send(PiNodeEvent(PiNodeEvent::Invalidation));
    EXPECT_EQ(catcher.frames, (std::vector<int>{12, -1}));

    g->setRole("Footage");
    EXPECT_EQ(g->getRole(), "Footage");
    EXPECT_EQ(graph->getRole(), "");
    // A plain graph has the factory's group controller.
    EXPECT_NE(dynamic_cast<PiGroupInterface*>(graph->getController().get()), nullptr);

    EXPECT_THROW(HoGraph::create("x", "", [](PiGraph&) { return RCShdPtr<PiNodeController>(); }),
                 ExBase);
    // A controller already driving a node is no graph's controller.
    auto taken = A->getController().lock();
    EXPECT_THROW(HoGraph::create("y", "", [&](PiGraph&) { return taken; }), ExBase);
}

// "Spline": a list of structured points, each a position and an image.
class SplineProtocol final : public PiToolProtocolImp {
public:
    SplineProtocol() : PiToolProtocolImp("Spline", "Shape", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        auto& p = d.requireStructured("Points", PiSocketType::MULTIVALUED);
        p.require("x", PiSocketType::DOUBLE);
        p.require("src", PiSocketType::IMAGE);
        d.produces("Output", PiSocketType::IMAGE);
    }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new RecordingController);
    }
};

class MultiValued : public GraphFixture {
public:
    void SetUp() override {
        GraphFixture::SetUp();
        spline = ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(new SplineProtocol)));
        static_cast<HoToolRegistry&>(HoToolRegistry::getInstance()).registerTool(spline);
        PiUndoGuard g(*graph, "Spline");
        S = root->createToolNode(spline, "S");
        points = rcCast<PiMultivaluedInput>(in(S, "Points"));
        for (int i = 0; i < 5; ++i) {
            RCShdPtr<PiInput> el = points->insertInput(i);
            xValue(el)->set(10.0 * i);
        }
        // Element 3 is animated (keys stored beside its value), element 4 is connected.
        RCShdPtr<PiNode> v3 = xNode(points->getInput(3));
        v3->addValue("Keys", PiValueType::DoubleArray);
        value<PiTypedValueArray<double>>(v3, "Keys")->setArray({0, 30, 1, 31});
        sub(points->getInput(4), "src")->connect(out(N));
    }
    static RCShdPtr<PiInput> sub(RCShdPtr<PiInput> const& el, std::string const& name) {
        return rcCast<PiStructuredInput>(el)->getInput(name);
    }
    static RCShdPtr<PiNode> xNode(RCShdPtr<PiInput> const& el) {
        return sub(el, "x")->getConnectedOutput()->retrieveNode();
    }
    static RCShdPtr<PiTypedValue<double>> xValue(RCShdPtr<PiInput> const& el) {
        return value<PiTypedValue<double>>(xNode(el), "Value");
    }
    // Each element by position: its name, x, stored keys and image source.
    std::vector<std::string> elements() const {
        std::vector<std::string> v;
        for (int i = 0; i < points->getCardinality(); ++i) {
            RCShdPtr<PiInput> el = points->getInput(i);
            std::string e = el->getName() + " x=" + std::to_string(int(xValue(el)->get()));
            if (auto keys = value<PiTypedValueArray<double>>(xNode(el), "Keys"))
                e += " keys=" + std::to_string(keys->getSize());
            if (RCShdPtr<PiOutput> src = sub(el, "src")->getConnectedOutput())
                e += " <- " + src->retrieveNode()->getNodeName();
            v.push_back(e);
        }
        return v;
    }
    ToolPtr spline;
    RCShdPtr<PiNode> S;
    RCShdPtr<PiMultivaluedInput> points;
};

using Lines = std::vector<std::string>;

// Elements keep their values, stored keys and connections through insertion and removal in the
// middle, undo, redo and archives.
TEST_F(MultiValued, ElementsFollowTheirIdentityNotTheirPosition) {
    Lines const start{"0 x=0", "1 x=10", "2 x=20", "3 x=30 keys=4", "4 x=40 <- N"};
    ASSERT_EQ(elements(), start);
    points->insertInput(0);
    Lines const inserted{"5 x=0", "0 x=0", "1 x=10", "2 x=20", "3 x=30 keys=4", "4 x=40 <- N"};
    EXPECT_EQ(elements(), inserted);
    points->removeInput(2);
    Lines const removed{"5 x=0", "0 x=0", "2 x=20", "3 x=30 keys=4", "4 x=40 <- N"};
    EXPECT_EQ(elements(), removed);
    expectSound();
    std::string const after = dump();

    PiCommandStack& stack = graph->getCommandStack();
    stack.undo();
    EXPECT_EQ(elements(), inserted);
    stack.undo();
    EXPECT_EQ(elements(), start);
    stack.redo();
    EXPECT_EQ(elements(), inserted);
    stack.redo();
    EXPECT_EQ(elements(), removed);
    EXPECT_EQ(dump(), after);
    expectSound();

    // Through an archive into another graph: same names, order, values and connections.
    std::vector<RCShdPtr<PiNode>> nodes{N, S};
    for (int i = 0; i < points->getCardinality(); ++i)
        nodes.push_back(xNode(points->getInput(i)));
    XmlWriter w;
    graph->archiveNodes(nodes, w);
    RCShdPtr<PiGraph> other = HoGraph::create("other");
    XmlDocument doc = XmlDocument::parse(w.toString());
    other->unarchiveNodes(doc.getRoot(), other->getRootNode());
    points = rcCast<PiMultivaluedInput>(other->getRootNode()->findNode("S")->findInput("Points"));
    EXPECT_EQ(elements(), removed);
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*other).empty());
    // A new element takes a name no element holds.
    EXPECT_EQ(points->insertInput(1)->getName(), "6");

    EXPECT_THROW(points->insertInput(-1), ExBase);
    EXPECT_THROW(points->removeInput(points->getCardinality()), ExBase);
}

// Where `hook` of `node` stands in the log, or -1; it must stand there once.
int onceAt(std::string const& entry) {
    auto const& log = hookLog();
    auto it = std::find(log.begin(), log.end(), entry);
    EXPECT_EQ(std::count(log.begin(), log.end(), entry), 1) << entry;
    return it == log.end() ? -1 : static_cast<int>(it - log.begin());
}

int lastConnectionOf(std::string const& node) {
    int last = -1;
    for (std::size_t i = 0; i < hookLog().size(); ++i)
        if (hookLog()[i].rfind(node + ": inputConnected", 0) == 0)
            last = static_cast<int>(i);
    return last;
}

// A node is announced once its connections are made: created when this edit made it, loaded
// when it comes back or arrives with stored values from elsewhere.
TEST_F(GraphFixture, NodesAreAnnouncedAfterTheirConnections) {
    RCShdPtr<PiGraph> other = HoGraph::create("other");
    RCShdPtr<PiGroupNode> box = other->getRootNode()->createGroupNode("box");
    std::string archived;
    {
        XmlWriter w;
        graph->archiveNodes({A, B, valueNode(B, "Radius")}, w);
        archived = w.toString();
    }
    struct Case {
        char const* label;
        std::function<void()> run;
        char const* node; // whose announcement is checked
        char const* hook; // "nodeCreated" or "nodeLoaded"
        int connections;  // inputConnected heard by the node before it
    };
    std::vector<Case> const cases = {
        {"create", [&] { root->createToolNode(blur, "D"); }, "D", "nodeCreated", 3},
        {"undo of a removal",
         [&] {
             root->removeNode(B);
             hookLog().clear();
             graph->getCommandStack().undo();
         },
         "B", "nodeLoaded", 5},
        {"redo of a creation",
         [&] {
             root->createToolNode(blur, "D");
             graph->getCommandStack().undo();
             hookLog().clear();
             graph->getCommandStack().redo();
         },
         "D", "nodeLoaded", 3},
        {"clone into another graph",
         [&] {
             box->cloneNodes({A, B, valueNode(B, "Radius")});
         },
         "B", "nodeLoaded", 2},
        // The archive carries one of B's three value nodes: the other two inputs get new ones.
        {"unarchive",
         [&] {
             XmlDocument doc = XmlDocument::parse(archived);
             other->unarchiveNodes(doc.getRoot(), other->getRootNode());
         },
         "B", "nodeLoaded", 4},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.label);
        hookLog().clear();
        c.run();
        int const at = onceAt(std::string(c.node) + ": " + c.hook);
        EXPECT_GT(at, lastConnectionOf(c.node));
        int heard = 0;
        for (int i = 0; i < at; ++i)
            heard += hookLog()[i].rfind(std::string(c.node) + ": inputConnected", 0) == 0;
        EXPECT_EQ(heard, c.connections);
    }
}

// Nodes of one graph copied into a group of another: fresh ids, the connections among them
// kept and announced, one undo step.
TEST_F(GraphFixture, ClonesCrossGraphsInOneStep) {
    RCShdPtr<PiGraph> other = HoGraph::create("other");
    RCShdPtr<PiGroupNode> box = other->getRootNode()->createGroupNode("box");
    other->getCommandStack().clear();
    std::string const empty = HoGraphUtil::dump(*other->getRootNode(), true);
    std::map<int, int> ids;
    hookLog().clear();
    auto copies = box->cloneNodes({A, B, G}, &ids);
    ASSERT_EQ(copies.size(), 3u);
    for (auto const& c : copies) {
        EXPECT_EQ(c->getGraph().get(), other.get());
        EXPECT_TRUE(c->isValid());
    }
    EXPECT_EQ(ids.at(A->getId()), copies[0]->getId());
    EXPECT_NE(copies[0]->getId(), A->getId());
    // Inside the copied set: B.Source <- A and, within G, C.Source <- gin; gin is fed by A
    // in the source, and that too is inside the set.
    EXPECT_TRUE(PiGraphObject::areEqual(copies[1]->findInput("Source")->getConnectedOutput(),
                                        copies[0]->findOutput("Output")));
    auto g2 = rcCast<PiGroupNode>(copies[2]);
    EXPECT_TRUE(g2->findInput("gin")->isConnected());
    EXPECT_TRUE(g2->findNode("C")->findInput("Source")->isConnected());
    // Outside it: B's layer L1 came from N, which was not copied.
    EXPECT_FALSE(
        rcCast<PiCompositeInput>(copies[1]->findInput("Layers"))->getInput(0)->isConnected());
    for (char const* heard : {"B: inputConnected Source Output", "C: inputConnected Source gin",
                              "gin: inputConnected gin Output"})
        EXPECT_EQ(std::count(hookLog().begin(), hookLog().end(), heard), 1) << heard;
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*other).empty());
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*graph).empty());

    EXPECT_EQ(other->getCommandStack().getUndoCount(), 1);
    EXPECT_EQ(graph->getCommandStack().getUndoCount(), 0);
    other->getCommandStack().undo();
    EXPECT_EQ(HoGraphUtil::dump(*other->getRootNode(), true), empty);
}

// Copies whose controllers fail as they arrive, or as undo takes them out: every other copy
// still hears, the first failure is raised, and the graph is left as it was before the clone.
TEST_F(GraphFixture, AFailingCopyStopsNoOtherCopyFromHearing) {
    std::string const before = HoGraphUtil::dump(*root, true);
    auto heard = [](char const* s) {
        return std::count(hookLog().begin(), hookLog().end(), s);
    };
    for (bool onUndo : {false, true}) {
        SCOPED_TRACE(onUndo ? "undo" : "clone");
        failingNode() = onUndo ? "" : "A";
        hookLog().clear();
        if (onUndo) {
            root->cloneNodes({A, B});
            failingNode() = "B"; // the first out
            EXPECT_THROW(graph->getCommandStack().undo(), ExBase);
        } else {
            EXPECT_THROW(root->cloneNodes({A, B}), ExBase);
            EXPECT_EQ(heard("B: nodeLoaded"), 1);
        }
        EXPECT_EQ(heard("A: nodeRemoved"), 1);
        EXPECT_EQ(heard("B: nodeRemoved"), 1);
        EXPECT_EQ(HoGraphUtil::dump(*root, true), before);
        EXPECT_TRUE(HoGraphUtil::checkInvariants(*graph).empty());
    }
}

// A tool whose controller answers the dynamic-socket questions as told and logs renames, and
// a link controller that logs target changes.
struct Answers {
    static inline bool yes = true;
};

class GuardedController final : public PiTopologyInterface {
    bool canAddDynamicInput(std::string const&, PiSocketType) override { return Answers::yes; }
    bool canAddDynamicOutput(std::string const&, PiSocketType) override { return Answers::yes; }
    bool canRenameDynamicInput(RCShdPtr<PiInput> const&, std::string const&) override {
        return Answers::yes;
    }
    bool canRemoveDynamicInput(RCShdPtr<PiInput> const&) override { return Answers::yes; }
    bool canRemoveDynamicOutput(RCShdPtr<PiOutput> const&) override { return Answers::yes; }
    void dynamicInputRenamed(RCShdPtr<PiInput> const& in) override {
        hookLog().push_back(nameOf(*this) + ": dynamicInputRenamed " + in->getName());
    }
    void dynamicOutputRenamed(RCShdPtr<PiOutput> const& out) override {
        hookLog().push_back(nameOf(*this) + ": dynamicOutputRenamed " + out->getName());
    }
};

class GuardedProtocol final : public PiToolProtocolImp {
public:
    GuardedProtocol() : PiToolProtocolImp("Guarded", "Test", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.produces("Output", PiSocketType::IMAGE);
    }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new GuardedController);
    }
};

class LinkController final : public PiLinkTopologyInterface {
    void linkChanged() override { hookLog().push_back(nameOf(*this) + ": linkChanged"); }
};

class LinkFactory final : public PiNodeControllerFactory {
    RCShdPtr<PiNodeController> createLinkController() override {
        return RCShdPtr<PiNodeController>(new LinkController);
    }
};

// Dynamic sockets are added, renamed and removed only with the topology's consent; renames
// are undone and reach the topology; a group's socket renames its boundary node.
TEST_F(GraphFixture, DynamicSocketsAskTheirTopologyAndRename) {
    ToolPtr guarded(new PiTool(RCShdPtr<PiToolProtocol const>(new GuardedProtocol)));
    RCShdPtr<PiNode> T = root->createToolNode(guarded, "T");
    RCShdPtr<PiInput> extra = T->addDynamicInput("Extra", PiSocketType::IMAGE);
    RCShdPtr<PiOutput> side = T->addDynamicOutput("Side", PiSocketType::IMAGE);
    extra->connect(out(N));
    std::string const before = dump();
    Answers::yes = false;
    struct Refused {
        char const* what;
        std::function<void()> run;
    };
    std::vector<Refused> const refused = {
        {"add input",
         [&] {
             T->addDynamicInput("More", PiSocketType::IMAGE);
         }},
        {"add output",
         [&] {
             T->addDynamicOutput("More", PiSocketType::IMAGE);
         }},
        {"rename input",
         [&] {
             T->renameDynamicInput(extra, "Renamed");
         }},
        {"remove input",
         [&] {
             T->removeDynamicInput(extra);
         }},
        {"remove output",
         [&] {
             T->removeDynamicOutput(side);
         }},
    };
    for (Refused const& r : refused) {
        SCOPED_TRACE(r.what);
        EXPECT_THROW(r.run(), ExBase);
        EXPECT_EQ(dump(), before);
    }
    Answers::yes = true;

    hookLog().clear();
    T->renameDynamicInput(extra, "Renamed");
    T->renameDynamicOutput(side, "Aside");
    EXPECT_EQ(hookLog(),
              (Lines{"T: dynamicInputRenamed Renamed", "T: dynamicOutputRenamed Aside"}));
    EXPECT_TRUE(T->findInput("Renamed")->isConnected());
    EXPECT_FALSE(T->findInput("Extra"));
    EXPECT_THROW(T->renameDynamicInput(extra, "Aside.x"), ExBase);
    EXPECT_THROW(T->renameDynamicOutput(side, "Output"), ExBase) << "the name is taken";
    EXPECT_THROW(B->renameDynamicInput(in(B, "Source"), "S"), ExBase) << "static";
    EXPECT_THROW(T->renameDynamicInput(in(B, "Radius"), "R"), ExBase) << "another node's";

    G->renameDynamicInput(gin, "plate");
    EXPECT_EQ(boundary(gin)->getNodeName(), "plate");
    EXPECT_TRUE(PiGraphObject::areEqual(G->findInput("plate"), gin));
    EXPECT_TRUE(gin->isConnected());
    expectSound();
    graph->getCommandStack().undo();
    graph->getCommandStack().undo();
    graph->getCommandStack().undo();
    EXPECT_EQ(dump(), before);
    Answers::yes = true;
}

// A link's target change reaches its controller, is undone, and survives an archive, even
// when the target's graph is not there to resolve it.
TEST_F(GraphFixture, LinkTargetsAreHeardUndoneAndArchived) {
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new LinkFactory));
    RCShdPtr<PiGraph> source = HoGraph::create("plates");
    RCShdPtr<PiNode> reader = source->getRootNode()->createToolNode(gen, "Reader");
    RCShdPtr<PiLinkNode> link = root->createLinkNode("L", PiSocketType::IMAGE, {});
    hookLog().clear();
    link->setTargetSocket(out(reader));
    graph->getCommandStack().undo();
    graph->getCommandStack().redo();
    EXPECT_EQ(hookLog(), (Lines{"L: linkChanged", "L: linkChanged", "L: linkChanged"}));

    XmlWriter w;
    graph->archiveNodes({link}, w);
    std::string const text = w.toString();
    auto load = [&](RCShdPtr<PiGraph> const& into) {
        XmlDocument doc = XmlDocument::parse(text);
        return rcCast<PiLinkNode>(into->unarchiveNodes(doc.getRoot(), into->getRootNode())[0]);
    };
    RCShdPtr<PiGraph> other = HoGraph::create("other");
    EXPECT_TRUE(PiGraphObject::areEqual(load(other)->getTargetSocket(), out(reader)));

    reader.reset();
    source.reset(); // the target's graph is gone: the link loads unresolved
    RCShdPtr<PiGraph> third = HoGraph::create("third");
    RCShdPtr<PiLinkNode> lost = load(third);
    EXPECT_FALSE(lost->getTargetSocket());
    EXPECT_NE(HoGraphUtil::dump(*third->getRootNode(), false)
                  .find("target=plates/Reader:out:Output (unresolved)"),
              std::string::npos);
    XmlWriter again;
    third->archiveNodes({lost}, again);
    EXPECT_EQ(again.toString().substr(again.toString().find("<Target")),
              text.substr(text.find("<Target")));
}

// Odds and ends the tool framework relies on.
TEST_F(GraphFixture, OverridesArraysOfTextAndSharedStacks) {
    struct Locked final : PiGroupInterface {
        bool canChangeGroupNode() override { return false; }
    };
    RCShdPtr<PiGraph> locked = HoGraph::create(
        "locked", "", [](PiGraph&) { return RCShdPtr<PiNodeController>(new Locked); });
    RCShdPtr<PiGroupNode> top = locked->getRootNode();
    EXPECT_THROW(top->createToolNode(gen, "X"), ExBase);
    PiGroupInterface::enableChangeGroupNodeOverride(true);
    EXPECT_TRUE(PiGroupInterface::isChangeGroupNodeOverrideEnabled());
    EXPECT_NO_THROW(top->createToolNode(gen, "X"));
    PiGroupInterface::enableChangeGroupNodeOverride(false);
    EXPECT_THROW(top->createToolNode(gen, "Y"), ExBase);

    A->addValue("Names", PiValueType::StringArray);
    auto names = value<PiTypedValueArray<std::string>>(A, "Names");
    ASSERT_TRUE(names);
    std::vector<std::vector<std::string>> const arrays = {
        {}, {""}, {"", ""}, {"a b", " ", "\"q\"", "back\\slash", "x"}, {"\\\""}};
    for (auto const& a : arrays) {
        names->setArray(a);
        std::string const text = names->toString();
        names->setArray({"other"});
        names->setFromString(text);
        EXPECT_EQ(*names->getArray(), a) << text;
    }
    for (char const* bad : {"a", "\"a", "\"a\"\"b\"", "\"a\" ", " \"a\"", "\"a\"  \"b\""})
        EXPECT_THROW(names->setFromString(bad), ExBase) << bad;

    // A shared stack outlives its graph, with no history left to replay.
    RCShdPtr<PiCommandStack> stack = graph->shareCommandStack();
    root->createToolNode(gen, "Z");
    EXPECT_TRUE(stack->canUndo());
    TearDown();
    EXPECT_FALSE(stack->canUndo());
    SetUp();
}

} // namespace
} // namespace Vn::GraphTest
