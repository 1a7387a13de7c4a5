#include "GraphTestSupport.h"

#include "ExBase.h"

#include <functional>

using namespace Vn;
using namespace Vn::GraphTest;

namespace {

class GraphUndo : public GraphFixture {};

struct Edit {
    char const* label;
    std::function<void(GraphUndo&)> run;
};

} // namespace

// Each edit under a guard makes one step with the guard's label; undo gives back the graph as
// it was (ids included), redo the graph as the edit left it.
TEST_F(GraphUndo, EveryEditUndoesAndRedoesExactly) {
    std::vector<Edit> const edits = {
        {"Connect",
         [](GraphUndo& f) {
             f.in(f.A, "Source")->connect(f.out(f.N));
         }},
        {"Reconnect",
         [](GraphUndo& f) {
             f.in(f.B, "Source")->connect(f.out(f.N));
         }},
        {"Disconnect",
         [](GraphUndo& f) {
             f.in(f.B, "Source")->disconnect();
         }},
        {"Create Node",
         [](GraphUndo& f) {
             f.root->createToolNode(f.blur, "D");
         }},
        {"Create Group",
         [](GraphUndo& f) {
             f.root->createGroupNode("H", {});
         }},
        {"Remove Node",
         [](GraphUndo& f) {
             f.root->removeNode(f.A);
         }},
        {"Remove Group",
         [](GraphUndo& f) {
             f.root->removeNode(f.G);
         }},
        {"Move To Group",
         [](GraphUndo& f) {
             f.G->moveNodes({f.B, f.N});
         }},
        {"Clone",
         [](GraphUndo& f) {
             f.root->cloneNodes({f.A, f.B, f.G});
         }},
        {"Add Group Input",
         [](GraphUndo& f) {
             f.G->addDynamicInput("x", PiSocketType::IMAGE);
         }},
        {"Remove Group Input",
         [](GraphUndo& f) {
             f.G->removeDynamicInput(f.gin);
         }},
        {"Remove Group Output",
         [](GraphUndo& f) {
             f.G->removeDynamicOutput(f.gout);
         }},
        {"Add Tool Input",
         [](GraphUndo& f) {
             f.A->addDynamicInput("k", PiSocketType::DOUBLE);
         }},
        {"Add And Remove Output",
         [](GraphUndo& f) {
             auto o = f.A->addDynamicOutput("aux", PiSocketType::IMAGE);
             f.A->removeDynamicOutput(o);
             f.A->addDynamicOutput("aux2", PiSocketType::IMAGE);
         }},
        {"Insert Layer",
         [](GraphUndo& f) {
             f.composite(f.B, "Layers")->insertInput(1, "L0");
         }},
        {"Move Layer",
         [](GraphUndo& f) {
             auto l = f.composite(f.B, "Layers");
             l->moveBefore(l->getInput(2), l->getInput(0));
         }},
        {"Remove Layer",
         [](GraphUndo& f) {
             auto l = f.composite(f.B, "Layers");
             l->removeInput(l->getInput(0));
         }},
        {"Append Point",
         [](GraphUndo& f) {
             rcCast<PiMultivaluedInput>(f.in(f.A, "Points"))->appendInput();
         }},
        {"Set Values",
         [](GraphUndo& f) {
             f.value<PiTypedValue<int>>(f.A, "Mode")->set(3);
             f.value<PiTypedValueArray<double>>(f.A, "Curve")->setArray({1.0, 2.5});
             f.value<PiTypedValue<double>>(f.valueNode(f.A, "Radius"), "Value")->set(4.0);
         }},
        {"Add Value",
         [](GraphUndo& f) {
             f.B->addValue("Note", PiValueType::String);
         }},
        {"Remove Value",
         [](GraphUndo& f) {
             f.B->removeValue("Mode");
         }},
        {"Result",
         [](GraphUndo& f) {
             f.out(f.B)->setResultState(1);
         }},
        {"Rename",
         [](GraphUndo& f) {
             f.B->setNodeName("Bee");
         }},
    };
    for (Edit const& e : edits) {
        SCOPED_TRACE(e.label);
        TearDown();
        SetUp();
        std::string const before = dump();
        PiCommandStack& stack = graph->getCommandStack();
        {
            PiUndoGuard guard(*graph, e.label);
            e.run(*this);
        }
        ASSERT_EQ(stack.getUndoCount(), 1);
        EXPECT_EQ(stack.getUndoLabel(), e.label);
        std::string const after = dump();
        EXPECT_NE(after, before);
        expectSound();
        stack.undo();
        EXPECT_EQ(dump(), before);
        expectSound();
        stack.redo();
        EXPECT_EQ(dump(), after);
        expectSound();
        stack.undo();
        EXPECT_EQ(dump(), before);
    }
}

// The hooks each edit calls, and the same ones, in reverse, for its undo; redo repeats the edit's.
TEST_F(GraphUndo, ControllersHearEditsUndoAndRedo) {
    struct Case {
        char const* label;
        std::function<void(GraphUndo&)> run;
        std::vector<std::string> edit;
        std::vector<std::string> undo;
    };
    std::vector<Case> const cases = {
        {"connect",
         [](GraphUndo& f) { f.in(f.A, "Source")->connect(f.out(f.N)); },
         {"A: inputConnected Source Output", "N: outputConnected Output Source",
          "comp: socketsConnected Source Output"},
         {"A: inputDisconnected Source Output", "N: outputDisconnected Output Source",
          "comp: socketsDisconnected Source Output"}},
        {"remove node",
         [](GraphUndo& f) { f.root->removeNode(f.N); },
         {"B: inputDisconnected Layers.L1 Output", "N: outputDisconnected Output Layers.L1",
          "comp: socketsDisconnected Layers.L1 Output", "comp: nodeRemovedFromGraph",
          "N: nodeRemoved"},
         {"B: inputConnected Layers.L1 Output", "N: outputConnected Output Layers.L1",
          "comp: socketsConnected Layers.L1 Output", "N: nodeLoaded", "comp: nodeAdded N"}},
        {"remove connected layer",
         [](GraphUndo& f) {
             auto l = f.composite(f.B, "Layers");
             l->removeInput(l->getInput(0));
         },
         {"B: inputDisconnected Layers.L1 Output", "N: outputDisconnected Output Layers.L1",
          "comp: socketsDisconnected Layers.L1 Output", "B: inputRemovedFromComposite Layers"},
         {"B: inputAddedToComposite Layers Layers.L1", "B: inputConnected Layers.L1 Output",
          "N: outputConnected Output Layers.L1", "comp: socketsConnected Layers.L1 Output"}},
        {"move layer",
         [](GraphUndo& f) {
             auto l = f.composite(f.B, "Layers");
             l->moveBefore(l->getInput(0), nullptr);
         },
         {"B: inputMovedInComposite Layers.L1 0>2"},
         {"B: inputMovedInComposite Layers.L1 2>0"}},
        {"remove group input",
         [](GraphUndo& f) { f.G->removeDynamicInput(f.gin); },
         {"gin: inputDisconnected gin Output", "A: outputDisconnected Output gin",
          "comp: socketsDisconnected gin Output", "C: inputDisconnected Source gin",
          "gin: outputDisconnected gin Source", "G: socketsDisconnected Source gin",
          "G: dynamicInputRemoved", "G: nodeRemovedFromGraph", "gin: nodeRemoved"},
         {"gin: nodeLoaded", "G: nodeAdded gin", "G: dynamicInputAdded gin",
          "C: inputConnected Source gin", "gin: outputConnected gin Source",
          "G: socketsConnected Source gin", "gin: inputConnected gin Output",
          "A: outputConnected Output gin", "comp: socketsConnected gin Output"}},
        {"value and result",
         [](GraphUndo& f) {
             f.value<PiTypedValue<int>>(f.A, "Mode")->set(2);
             f.value<PiTypedValue<int>>(f.A, "Mode")->set(2);
             f.out(f.A)->setResultState(1);
         },
         {"A: valueChanged Mode=2", "A: resultStateChanged Output 1"},
         {"A: resultStateChanged Output 0", "A: valueChanged Mode=0"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.label);
        TearDown();
        SetUp();
        {
            PiUndoGuard guard(*graph, c.label);
            c.run(*this);
        }
        EXPECT_EQ(hookLog(), c.edit);
        hookLog().clear();
        graph->getCommandStack().undo();
        EXPECT_EQ(hookLog(), c.undo);
        hookLog().clear();
        graph->getCommandStack().redo();
        EXPECT_EQ(hookLog(), c.edit);
    }
}

TEST_F(GraphUndo, GuardsNestAndCommandsAreCountedOnce) {
    PiCommandStack& stack = graph->getCommandStack();
    struct Counter final : CbHandler<PiGraphEvent> {
        int processed = 0;
        void execute(PiGraphEvent const& e) override {
            processed += e.type == PiGraphEvent::CommandProcessed;
        }
    } counter;
    graph->addCallback(&counter);
    {
        PiUndoGuard outer(*graph, "Outer");
        root->createToolNode(gen, "X");
        {
            PiUndoGuard inner(*graph, "Inner");
            A->setNodeName("A2");
        }
        EXPECT_EQ(counter.processed, 0);
    }
    EXPECT_EQ(stack.getUndoCount(), 1);
    EXPECT_EQ(stack.getUndoLabel(), "Outer");
    EXPECT_EQ(counter.processed, 1);

    // Nothing changed: no step, no event. An equal write changes nothing.
    {
        PiUndoGuard g(*graph, "Nothing");
        value<PiTypedValue<int>>(A, "Mode")->set(0);
        A->setNodeName("A2");
    }
    EXPECT_EQ(stack.getUndoCount(), 1);
    EXPECT_EQ(counter.processed, 1);

    stack.undo();
    EXPECT_EQ(counter.processed, 2);
    EXPECT_TRUE(stack.canRedo());
    // An edit without a guard is a command of its own, and clears the redo history.
    B->setNodeName("B2");
    EXPECT_EQ(stack.getUndoLabel(), "Rename");
    EXPECT_FALSE(stack.canRedo());
    EXPECT_EQ(counter.processed, 3);

    // Not logged: the change stays, the history does not grow.
    {
        PiUndoGuardNoLog nolog(*graph);
        value<PiTypedValue<int>>(B, "Mode")->set(7);
    }
    EXPECT_EQ(stack.getUndoCount(), 1);
    EXPECT_EQ(value<PiTypedValue<int>>(B, "Mode")->get(), 7);
    graph->removeCallback(&counter);
}

// A failing step leaves nothing behind: what the guard saw is undone, inner work kept.
TEST_F(GraphUndo, FailedEditsLeaveTheGraphAsItWas) {
    std::string const before = dump();
    PiCommandStack& stack = graph->getCommandStack();
    EXPECT_THROW(in(A, "Source")->connect(out(B)), ExBase); // would close a cycle
    EXPECT_THROW(in(A, "Radius")->connect(out(N)), ExBase); // types differ
    EXPECT_THROW(A->addDynamicInput("Source", PiSocketType::IMAGE), ExBase);
    EXPECT_THROW(in(A, "Layers")->connect(out(N)), ExBase); // holds sub-inputs
    EXPECT_THROW(
        {
            PiUndoGuard g(*graph, "Half");
            root->createToolNode(blur, "D");
            in(A, "Source")->connect(out(N));
            throw ExInternalError(__FILE__, __LINE__, "stop");
        },
        ExBase);
    EXPECT_EQ(dump(), before);
    // Unlogged edits are rolled back alike, inside a logged guard or around one.
    for (bool outerLogged : {false, true}) {
        EXPECT_THROW(
            {
                PiUndoGuard logged(*graph, "Logged");
                PiUndoGuardNoLog nolog(*graph);
                if (outerLogged)
                    value<PiTypedValue<int>>(A, "Mode")->set(3);
                {
                    PiUndoGuard inner(*graph, "Inner");
                    root->createToolNode(blur, "E");
                }
                value<PiTypedValue<int>>(B, "Mode")->set(5);
                throw ExInternalError(__FILE__, __LINE__, "stop");
            },
            ExBase);
        EXPECT_EQ(dump(), before);
    }
    EXPECT_EQ(stack.getUndoCount(), 0);
    expectSound();
}

// Ids belong to objects: undo brings back the same objects, valid again.
TEST_F(GraphUndo, IdentityAndValiditySurviveUndo) {
    int const id = B->getId();
    RCShdPtr<PiInput> src = in(B, "Source");
    RCShdPtr<PiNode> radius = valueNode(B, "Radius");
    root->removeNode(B);
    EXPECT_FALSE(B->isValid());
    EXPECT_FALSE(src->isValid());
    EXPECT_FALSE(radius->isValid()) << "the value node goes with its node";
    EXPECT_FALSE(C->isValid() && !G->isValid());
    graph->getCommandStack().undo();
    EXPECT_TRUE(B->isValid());
    EXPECT_TRUE(radius->isValid());
    EXPECT_EQ(root->findNode("B")->getId(), id);
    EXPECT_TRUE(PiGraphObject::areEqual(root->findNode("B"), B));
    EXPECT_TRUE(PiGraphObject::areEqual(RCShdPtr<PiNode>(), RCShdPtr<PiNode>()));
    EXPECT_FALSE(PiGraphObject::areEqual(RCShdPtr<PiNode>(), B));
    EXPECT_TRUE(PiGraphObject::SortById()(A, B));
    EXPECT_TRUE(PiGraphObject::areEqual(in(B, "Source")->getConnectedOutput(), out(A)));
}

// A move reports the connections that now cross the group's boundary.
TEST_F(GraphUndo, MovingNodesReportsCrossings) {
    PiGroupCrossings x = G->moveNodes({B});
    ASSERT_EQ(x.inward.size(), 2u); // B.Source <- A, B.Layers.L1 <- N
    EXPECT_EQ(x.inward[0].first->getName(), "Source");
    EXPECT_TRUE(PiGraphObject::areEqual(x.inward[0].second, out(A)));
    EXPECT_TRUE(x.outward.empty());
    EXPECT_TRUE(PiGraphObject::areEqual(valueNode(B, "Radius")->retrieveGroupNode(), G))
        << "value nodes follow the node they feed";
    EXPECT_THROW(G->moveNodes({G}), ExBase);
}

TEST_F(GraphUndo, CloneMapsIdsAndKeepsOnlyInnerConnections) {
    std::map<int, int> ids;
    auto copies = root->cloneNodes({A, B}, &ids);
    ASSERT_EQ(copies.size(), 2u);
    EXPECT_EQ(ids.at(A->getId()), copies[0]->getId());
    RCShdPtr<PiInput> src = copies[1]->findInput("Source");
    EXPECT_TRUE(
        PiGraphObject::areEqual(src->getConnectedOutput(), copies[0]->findOutput("Output")));
    EXPECT_EQ(ids.at(in(B, "Source")->getId()), src->getId());
    EXPECT_FALSE(copies[1]->findInput("Layers.L1")->isConnected()) << "N was not cloned";
    EXPECT_FALSE(copies[0]->findInput("Radius")->isConnected()) << "nor the value nodes";
}

// Node events reach subscribers through the controller; graph events reach graph callbacks.
TEST_F(GraphUndo, NodeAndGraphEventsReachSubscribers) {
    struct NodeEvents final : CbHandler<PiNodeEvent> {
        std::vector<PiNodeEvent::Type> seen;
        void execute(PiNodeEvent const& e) override { seen.push_back(e.type); }
    } nodeEvents;
    A->addEventHandler(&nodeEvents);
    in(A, "Source")->connect(out(N));
    composite(A, "Layers")->insertInput(0, "x");
    out(A)->setResultState(1);
    graph->getCommandStack().undo();
    EXPECT_EQ(nodeEvents.seen,
              (std::vector<PiNodeEvent::Type>{PiNodeEvent::SocketConnected, PiNodeEvent::InputAdded,
                                              PiNodeEvent::ResultStateChanged,
                                              PiNodeEvent::ResultStateChanged}));
    A->removeEventHandler(&nodeEvents);

    struct GraphEvents final : CbHandler<PiGraphEvent> {
        std::vector<PiGraphEvent::Type> seen;
        void execute(PiGraphEvent const& e) override { seen.push_back(e.type); }
    } graphEvents;
    graph->addCallback(&graphEvents);
    {
        RCShdPtr<PiGraphOpenGuard> open = graph->open();
        EXPECT_EQ(graph->getOpenCount(), 1);
        graph->close();
        EXPECT_FALSE(graph->isValid());
        graph->refresh();
    }
    EXPECT_EQ(graph->getOpenCount(), 0);
    EXPECT_TRUE(graph->isValid());
    EXPECT_EQ(graphEvents.seen, (std::vector<PiGraphEvent::Type>{PiGraphEvent::CloseGraph,
                                                                 PiGraphEvent::GraphRefreshed}));
    graph->removeCallback(&graphEvents);
}

TEST_F(GraphUndo, SocketWalksFollowScopeAndComposites) {
    auto names = [](Iterator<RCShdPtr<PiInput>> it) {
        std::string s;
        for (; !it.atEnd(); it.next())
            s += it.item()->getDottedName() + " ";
        return s;
    };
    B->addDynamicInput("Extra", PiSocketType::INT);
    EXPECT_EQ(names(B->getInputs(PiNode::STATIC)), "Source Radius Layers Points Transform ");
    EXPECT_EQ(names(B->getInputs(PiNode::ALL, 1)),
              "Source Radius Layers.L1 Layers.L2 Layers.L3 Transform.x Transform.y Extra ");
    rcCast<PiMultivaluedInput>(in(B, "Points"))->appendInput();
    for (auto it = B->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next())
        EXPECT_NE(it.item()->getType().getType(), PiSocketType::NONE);
    EXPECT_NE(names(B->getInputs(PiNode::ALL, 1)).find("Points.0 "), std::string::npos);
    EXPECT_EQ(names(B->getInputs(PiNode::DYNAMIC)), "Extra ");
    EXPECT_EQ(names(G->getInputs()), "gin ");
    EXPECT_TRUE(PiGraphObject::areEqual(G->findInput("gin"), gin));
    EXPECT_EQ(B->findInput("Transform.y")->getOwnerInput()->getName(), "Transform");
    EXPECT_TRUE(B->findInput("Layers.L2")->isPartOfComposite());
    EXPECT_FALSE(B->findInput("Layers.L9"));
    EXPECT_FALSE(B->findInput("Extra", PiNode::STATIC));
    EXPECT_TRUE(PiGraphObject::areEqual(boundary(gin)->getMatchingSocket(*gin),
                                        boundary(gin)->getOutput()));
    EXPECT_TRUE(valueNode(B, "Extra")->getValue("Value", PiValueType::Int));
    auto link = root->createLinkNode("L", PiSocketType::IMAGE, out(C));
    EXPECT_TRUE(link->getLinkedGraph() == graph);
}
