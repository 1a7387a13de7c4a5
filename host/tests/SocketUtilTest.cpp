// The graph verbs of editors: socket names and lookups, the connection rule and the groups'
// answers, reordering, searches, collapse, anchors, node tests, and the animation queries and
// copies of inputs over the tool framework's value controllers.
#include "GraphTestSupport.h"
#include "ToolGraphFixture.h"

#include "ExBase.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "LgLog.h"
#include "PiExpressionInterface.h"
#include "PiExpressionServices.h"
#include "PiGraphAnimInterface.h"
#include "PiGraphSearch.h"
#include "PiNodeAnchorUtils.h"
#include "PiNodePredicates.h"
#include "PiNodeUtils.h"
#include "PiPath.h"
#include "PiSocketUtil.h"
#include "PiValueInterface.h"
#include "XmlDocument.h"

#include <algorithm>
#include <functional>
#include <set>

using namespace Vn;
using namespace Vn::GraphTest;

namespace {

using U = PiSocketUtil;

// "Rig": an image source (primary), a double, a list of doubles, a list of knots {x, y}.
class RigProtocol final : public PiToolProtocolImp {
public:
    RigProtocol() : PiToolProtocolImp("Rig", "Filter", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Amount", PiSocketType::DOUBLE);
        d.require("Source", PiSocketType::IMAGE);
        d.require("Points", PiSocketType::DOUBLE, {}, PiSocketType::MULTIVALUED);
        auto& k = d.requireStructured("Knots", PiSocketType::MULTIVALUED);
        k.require("x", PiSocketType::DOUBLE);
        k.require("y", PiSocketType::DOUBLE);
        d.produces("Matte", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::IMAGE);
    }
    std::string getPrimaryInput() const override { return "Source"; }
};

// "Pipe": one image in, one out; "Merge": two in. Light nodes for long chains and diamonds.
ToolPtr pipeTool(int inputs) {
    return testTool({inputs == 1 ? "Pipe" : "Merge", "Filter"},
                    imageSockets(inputs == 1 ? std::vector<std::string>{"In0"}
                                             : std::vector<std::string>{"In0", "In1"}));
}

// "Expr": drives a value through its one output.
class ExprController final : public RecordingController, public PiExpressionInterface {
    bool isResolved() const override { return true; }
    bool canResolve() const override { return true; }
    void resolve() override {}
};

// Who a group asked, in order, and whether groups refuse changes.
std::vector<std::string>& asked() {
    static std::vector<std::string> log;
    return log;
}

class LockableGroup final : public RecordingController {
public:
    using PiGroupInterface::canDisconnectSockets;
    static inline bool locked = false;
    bool canConnectSockets(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) override {
        asked().push_back(nameOf(*this));
        return PiGroupInterface::canConnectSockets(in, out);
    }
    bool canDisconnectSockets(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&,
                              RCShdPtr<PiNode> const& node) override {
        asked().push_back("disconnect " + std::string(node ? "node" : "null"));
        return changeAllowed();
    }

private:
    bool canChangeGroupNode() override { return !locked; }
};

class LockableFactory final : public PiNodeControllerFactory {
    RCShdPtr<PiNodeController> createGroupController(PiTool const*) override {
        return RCShdPtr<PiNodeController>(new LockableGroup);
    }
};

// Calls "Pipe" an expression tool.
class ExprServices final : public PiExpressionServices {
    bool isExpressionTool(RCShdPtr<PiTool const> const& t) const override {
        return t && t->getProtocol().getName() == "Pipe";
    }
    std::string getExpressoToken() const override { return "=expr:"; }
};

// Closes the chain into a ring: the head's unconnected input reads the tail.
class RingFilter final : public PiGraphSearch::SocketFilter {
public:
    RingFilter(RCShdPtr<PiNode> head, RCShdPtr<PiNode> tail)
        : _head(std::move(head)), _tail(std::move(tail)) {}
    RCShdPtr<PiOutput> getOutput(RCShdPtr<PiInput const> const& in) const override {
        if (PiGraphObject::areEqual(in->retrieveNode(), _head))
            return _tail->findOutput("Output");
        return SocketFilter::getOutput(in);
    }
    Iterator<RCShdPtr<PiInput>> getInputs(RCShdPtr<PiOutput const> const& out) const override {
        if (PiGraphObject::areEqual(out->retrieveNode(), _tail))
            return Iterator<RCShdPtr<PiInput>>::overValues({_head->findInput("In0")});
        return SocketFilter::getInputs(out);
    }
    using SocketFilter::getInputs;

private:
    RCShdPtr<PiNode> _head, _tail;
};

class SocketUtilTest : public GraphFixture {
public:
    void SetUp() override {
        GraphFixture::SetUp();
        auto& reg = static_cast<HoToolRegistry&>(PiToolRegistry::getInstance());
        rig = ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(new RigProtocol)));
        pipe = pipeTool(1);
        merge = pipeTool(2);
        for (ToolPtr const& t : {rig, pipe, merge})
            reg.registerTool(t);
        PiUndoGuard g(*graph, "Rig");
        R = root->createToolNode(rig, "R");
        for (int i = 0; i < 2; ++i) {
            rcCast<PiMultivaluedInput>(in(R, "Points"))->appendInput();
            rcCast<PiMultivaluedInput>(in(R, "Knots"))->appendInput();
        }
    }
    void TearDown() override {
        asked().clear();
        LockableGroup::locked = false;
        PiGroupInterface::enableChangeGroupNodeOverride(false);
        PiExpressionServices::setInstance(nullptr);
        GraphFixture::TearDown();
    }
    // A node of `tool` fed by `sources` in input order; made under a guard of its own.
    RCShdPtr<PiNode> make(ToolPtr const& tool, std::string const& name,
                          std::vector<RCShdPtr<PiNode>> const& sources = {},
                          RCShdPtr<PiGroupNode> const& group = {}) {
        RCShdPtr<PiNode> n = (group ? group : root)->createToolNode(tool, name);
        for (std::size_t i = 0; i < sources.size(); ++i)
            in(n, "In" + std::to_string(i))->connect(out(sources[i]));
        return n;
    }
    // Diamonds stacked on `top`: each node feeds two pipes that a merge joins.
    RCShdPtr<PiNode> diamonds(RCShdPtr<PiNode> top, int count, std::string const& prefix) {
        PiUndoGuard g(*graph, "Diamonds");
        for (int i = 0; i < count; ++i) {
            std::string const s = prefix + std::to_string(i);
            auto l = make(pipe, s + "L", {top}), r = make(pipe, s + "R", {top});
            top = make(merge, s + "M", {l, r});
        }
        return top;
    }
    static std::vector<std::string> names(PiPathPtr const& path) {
        std::vector<std::string> v;
        for (auto const& s : path->getSteps())
            v.push_back(s.node->getNodeName());
        return v;
    }

    ToolPtr rig, pipe, merge;
    RCShdPtr<PiNode> R;
};

} // namespace

// Dotted names in both index modes, and the lookups that read them back.
TEST_F(SocketUtilTest, NamesAndLookups) {
    auto knots = rcCast<PiInputList>(in(R, "Knots"));
    RCShdPtr<PiInput> knot1 = knots->getInput(1);
    RCShdPtr<PiInput> x1 = rcCast<PiInputList>(knot1)->getInput(0);
    RCShdPtr<PiInput> point0 = rcCast<PiInputList>(in(R, "Points"))->getInput(0);
    std::string const k1 = knot1->getName(), p0 = point0->getName();
    auto refuseLists = U::InputPredicate::fromFunction(
        [](RCShdPtr<PiInput const> const& o) { return !o->isMultivalued(); });
    struct Case {
        RCShdPtr<PiInput> input;
        U::MultivaluedIndexMode mode;
        U::InputPredicate stop;
        std::string name;
    } const cases[] = {
        {in(R, "Amount"), U::SKIP_ELEMENT, {}, "Amount"},
        {point0, U::KEEP_ELEMENT, {}, "Points." + p0},
        {point0, U::SKIP_ELEMENT, {}, "Points"},
        {knot1, U::SKIP_ELEMENT, {}, "Knots"},
        {x1, U::KEEP_ELEMENT, {}, "Knots." + k1 + ".x"},
        {x1, U::SKIP_ELEMENT, {}, "Knots.x"},
        {x1, U::KEEP_ELEMENT, refuseLists, k1 + ".x"},
    };
    for (Case const& c : cases)
        EXPECT_EQ(U::getName(*c.input, c.mode, c.stop), c.name) << c.name;

    EXPECT_TRUE(PiGraphObject::areEqual(U::getInput(*R, "Knots." + k1 + ".x"), x1));
    EXPECT_TRUE(PiGraphObject::areEqual(U::getInput(*R, "..Knots.." + k1 + ".x."), x1));
    EXPECT_TRUE(PiGraphObject::areEqual(U::getInput(*knots, k1 + ".x"), x1));
    for (std::string const& miss :
         std::vector<std::string>{"", ".", "Knots.9", "Amount.x", "Knots." + k1 + ".z"})
        EXPECT_FALSE(U::getInput(*R, miss)) << miss;
    EXPECT_EQ(U::findSiblingInput(*x1, "y")->getDottedName(), "Knots." + k1 + ".y");
    EXPECT_EQ(U::findSiblingInput(*x1, k1 + ".y")->getDottedName(), "Knots." + k1 + ".y");
    EXPECT_FALSE(U::findSiblingInput(*x1, "Amount"));
    EXPECT_TRUE(PiGraphObject::areEqual(U::getRootOwnerInput(x1), knots));
    EXPECT_EQ(U::retrieveInputs(knots).getCardinality(), 2);
    EXPECT_EQ(U::retrieveAllInputs(knots).getCardinality(), 6);
    EXPECT_EQ(U::retrieveAllInputs(x1).getCardinality(), 0);
}

// Primary and first sockets by type, the dynamic test and the group behind a boundary.
TEST_F(SocketUtilTest, PrimaryAndFirstSockets) {
    auto const dbl = PiSocketType(PiSocketType::DOUBLE), img = PiSocketType(PiSocketType::IMAGE);
    EXPECT_EQ(U::getPrimaryInput(*R)->getName(), "Source");
    EXPECT_EQ(U::getPrimaryImageInput(*R)->getName(), "Source");
    EXPECT_EQ(U::getPrimaryInput(*R, dbl)->getName(), "Amount") << "primary of another type";
    EXPECT_EQ(U::getPrimaryImageInput(*B)->getName(), "Source") << "no primary: first image";
    EXPECT_EQ(U::getPrimaryImageOutput(*R)->getName(), "Output");
    EXPECT_EQ(U::getFirstOutput(*R, dbl)->getName(), "Matte");
    EXPECT_FALSE(U::getPrimaryInput(*B));
    EXPECT_FALSE(U::getFirstInput(*N, img));
    EXPECT_TRUE(U::isDynamic(*gin));
    EXPECT_TRUE(U::isDynamic(*boundary(gin)->getOutput())) << "a boundary's inner side";
    EXPECT_FALSE(U::isDynamic(*in(B, "Source")));
    EXPECT_TRUE(PiGraphObject::areEqual(U::getGroupNodeFromInput(*gin), G));
    EXPECT_FALSE(U::getGroupNodeFromInput(*in(B, "Source")));
}

// The connection rule asks the input's group, then the output's unless it is the same group;
// a null output and expression tools pass without asking.
TEST_F(SocketUtilTest, CanConnectAsksTheGroupsInOrder) {
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new LockableFactory));
    RCShdPtr<PiGroupNode> L, M;
    RCShdPtr<PiNode> X, Y, Z;
    {
        PiUndoGuard g(*graph, "Groups");
        L = root->createGroupNode("L");
        M = root->createGroupNode("M");
        X = make(pipe, "X", {}, L);
        Y = make(pipe, "Y", {}, L);
        Z = make(pipe, "Z", {}, M);
    }
    struct Case {
        RCShdPtr<PiInput> input;
        RCShdPtr<PiOutput> output;
        bool locked, expressions;
        bool result;
        std::vector<std::string> asked;
    } const cases[] = {
        {in(Y, "In0"), nullptr, true, false, true, {}},
        {in(Y, "In0"), out(X), false, false, true, {"L"}},
        {in(Y, "In0"), out(X), true, false, false, {"L"}},
        {in(Z, "In0"), out(X), false, false, true, {"M", "L"}},
        {in(Z, "In0"), out(X), true, false, false, {"M"}},
        {in(Z, "In0"), out(X), true, true, true, {}},
        {in(X, "In0"), out(Z), true, true, true, {}},
    };
    for (Case const& c : cases) {
        asked().clear();
        LockableGroup::locked = c.locked;
        PiExpressionServices::setInstance(
            c.expressions ? OPtr<PiExpressionServices>(new ExprServices) : nullptr);
        EXPECT_EQ(U::canConnect(c.input, c.output), c.result)
            << c.input->retrieveNode()->getNodeName();
        EXPECT_EQ(asked(), c.asked) << c.input->retrieveNode()->getNodeName();
    }
    PiExpressionServices::setInstance(nullptr);
    LockableGroup::locked = false;
    asked().clear();
    if (U::canConnect(in(Y, "In0"), out(X)))
        in(Y, "In0")->connect(out(X));
    EXPECT_EQ(asked(), std::vector<std::string>{"L"}) << "connect itself asks nobody";
    EXPECT_TRUE(in(Y, "In0")->isConnected());
    EXPECT_THROW(U::canConnect(nullptr, out(X)), ExBase);
}

// What a group's controller answers by default, locked, and with the override on.
TEST_F(SocketUtilTest, GroupControllerDefaults) {
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new LockableFactory));
    RCShdPtr<PiGroupNode> L;
    {
        PiUndoGuard g(*graph, "Group");
        L = root->createGroupNode("L");
    }
    auto c = rcCast<PiGroupInterface>(L->getController().lock());
    RCShdPtr<PiInput> i = in(B, "Source");
    RCShdPtr<PiOutput> o = out(A);
    std::vector<std::function<bool()>> const changes = {
        [&] { return c->canAddNode(A); },
        [&] { return c->canAddLinkNode(PiSocketType(PiSocketType::IMAGE)); },
        [&] { return c->canRemoveNode(A); },
        [&] { return c->canConnectSockets(i, o); },
        [&] { return c->canDisconnectSockets(i, o); },
        [&] { return c->canDisconnectSockets(i, o, A); },
    };
    for (bool locked : {false, true})
        for (bool override : {false, true}) {
            LockableGroup::locked = locked;
            PiGroupInterface::enableChangeGroupNodeOverride(override);
            EXPECT_EQ(PiGroupInterface::isChangeGroupNodeOverrideEnabled(), override);
            for (std::size_t k = 0; k < changes.size(); ++k)
                EXPECT_EQ(changes[k](), !locked || override) << k << locked << override;
            EXPECT_TRUE(c->canChangeInternalNodeName(A));
        }
    std::vector<std::string> want;
    for (int k = 0; k < 4; ++k)
        want.insert(want.end(), {"L", "disconnect null", "disconnect node"});
    EXPECT_EQ(asked(), want) << "the two-argument disconnect asks with a null node";
    auto keyed = c->overrideKeyframesDisplay(A);
    ASSERT_EQ(keyed.getCardinality(), 1);
    EXPECT_TRUE(PiGraphObject::areEqual(keyed.item(), A));
    EXPECT_TRUE(PiGraphObject::areEqual(c->getGroupNode(), L));
}

// Moves within a composite input, each one undo step; the ends give false.
TEST_F(SocketUtilTest, ReorderingUnderUndo) {
    auto layers = composite(B, "Layers");
    auto order = [&] {
        std::string s;
        for (int i = 0; i < layers->getCardinality(); ++i)
            s += layers->getInput(i)->getName();
        return s;
    };
    auto L = [&](std::string const& name) {
        return U::getInput(*layers, name);
    };
    struct Case {
        std::function<bool(RCShdPtr<PiInput> const&)> op;
        std::string element;
        bool moved;
        std::string order;
    } const cases[] = {
        {U::moveNext, "L3", false, "L1L2L3"},    {U::moveNext, "L2", true, "L1L3L2"},
        {U::moveNext, "L1", true, "L3L1L2"},     {U::movePrevious, "L3", false, "L3L1L2"},
        {U::movePrevious, "L2", true, "L3L2L1"}, {U::moveFirst, "L3", false, "L3L2L1"},
        {U::moveFirst, "L1", true, "L1L3L2"},    {U::moveLast, "L2", false, "L1L3L2"},
        {U::moveLast, "L1", true, "L3L2L1"},
    };
    int const before = graph->getCommandStack().getUndoCount();
    int steps = 0;
    for (Case const& c : cases) {
        EXPECT_EQ(c.op(L(c.element)), c.moved) << c.order;
        EXPECT_EQ(order(), c.order);
        steps += c.moved;
        EXPECT_EQ(graph->getCommandStack().getUndoCount(), before + steps);
    }
    for (int i = 0; i < steps; ++i)
        graph->getCommandStack().undo();
    EXPECT_EQ(order(), "L1L2L3");
    EXPECT_TRUE(L("L1")->isConnected()) << "moves keep connections";
    graph->getCommandStack().redo();
    EXPECT_EQ(order(), "L1L3L2");
    EXPECT_THROW(U::moveNext(in(B, "Source")), ExBase);
    expectSound();
}

// Upstream and downstream searches over a chain of 100,000 nodes, and round it as a ring.
TEST_F(SocketUtilTest, SearchesWalkLongChainsAndRings) {
    int const length = 100000;
    std::vector<RCShdPtr<PiNode>> chain;
    {
        PiUndoGuard g(*graph, "Chain");
        chain.push_back(make(pipe, "P0"));
        for (int i = 1; i < length; ++i)
            chain.push_back(make(pipe, "P" + std::to_string(i), {chain.back()}));
    }
    RCShdPtr<PiNode> const head = chain.front(), tail = chain.back();
    PiPathPtr up = PiGraphSearch::depthFirst(tail, PiIsNode(head));
    ASSERT_TRUE(up);
    ASSERT_EQ(up->getSize(), length);
    auto const& s = up->getSteps();
    EXPECT_TRUE(s.front().node == tail && s.back().node == head && !s.back().input);
    EXPECT_EQ(s[0].input->getName(), "In0");
    EXPECT_TRUE(PiGraphObject::areEqual(s[0].output->retrieveNode(), chain[length - 2]));
    PiPathPtr down = PiGraphSearch::heightFirst(head, PiIsNodeId(tail->getId()));
    ASSERT_TRUE(down);
    EXPECT_EQ(down->getSize(), length);
    EXPECT_TRUE(PiGraphObject::areEqual(down->getSteps()[0].input->retrieveNode(), chain[1]));
    EXPECT_FALSE(PiGraphSearch::depthFirst(head, PiIsNode(tail))) << "nothing upstream";

    RingFilter const ring(head, tail);
    EXPECT_FALSE(PiGraphSearch::depthFirst(tail, PiNodePredicate::none(), ring));
    EXPECT_FALSE(PiGraphSearch::heightFirst(head, PiNodePredicate::none(), ring));
    EXPECT_EQ(PiGraphSearch::depthFirst(head, PiIsNode(chain[length / 2]), ring)->getSize(),
              length / 2 + 1)
        << "through the ring";
    EXPECT_EQ(PiGraphSearch::findPaths(chain[9], PiNodePredicate::none(), ring).size(), 0u);
    EXPECT_EQ(PiGraphSearch::findPaths(chain[9], PiIsNode(chain[3]), ring).size(), 1u);
}

// Every route through stacked diamonds, up to the cap, which is logged.
TEST_F(SocketUtilTest, FindPathsReturnsEveryRouteUpToItsCap) {
    RCShdPtr<PiNode> top = make(pipe, "T");
    RCShdPtr<PiNode> small = diamonds(top, 3, "S");
    std::vector<PiPathPtr> paths = PiGraphSearch::findPaths(small, PiIsNode(top));
    ASSERT_EQ(paths.size(), 8u);
    std::set<std::vector<std::string>> distinct;
    for (auto const& p : paths) {
        EXPECT_EQ(p->getSize(), 7);
        EXPECT_EQ(p->getSteps().back().node, top);
        distinct.insert(names(p));
    }
    EXPECT_EQ(distinct.size(), 8u);
    EXPECT_EQ(PiGraphSearch::findPaths(small, PiIsNode(small)).size(), 1u) << "the start itself";

    // 2^23 routes: the cap ends the walk, and without a match the step budget does.
    RCShdPtr<PiNode> deep = diamonds(small, 20, "D");
    struct Case {
        PiNodePredicate accept;
        std::size_t paths;
        std::string logged;
    } const cases[] = {{PiIsNode(top), std::size_t(PiGraphSearch::MAX_PATHS), "at 10000 paths"},
                       {PiNodePredicate::none(), 0, "after 1000000 steps"}};
    for (Case const& c : cases) {
        std::vector<std::string> logged;
        LgLog::Output previous =
            LgLog::setOutput([&](LgEntry const& e) { logged.push_back(e.text); });
        EXPECT_EQ(PiGraphSearch::findPaths(deep, c.accept).size(), c.paths);
        LgLog::setOutput(std::move(previous));
        ASSERT_EQ(logged.size(), 1u);
        EXPECT_NE(logged[0].find(c.logged), std::string::npos) << logged[0];
    }
}

// Collapse types from the consumers, and the collapse of a tree of diamonds: each node once,
// out of the undo history.
TEST_F(SocketUtilTest, CollapseFollowsConsumers) {
    auto setState = [](RCShdPtr<PiNode> const& n, std::string const& s) {
        PiNodeUtils::setStoredValue(PiNodeUtils::COLLAPSED_VALUE, *n, s);
    };
    EXPECT_EQ(PiNodeUtils::getCollapseType(*R), PiNodeUtils::COLLAPSED) << "no outputs used";
    struct Case {
        std::string consumerState;
        PiNodeUtils::CollapseType type;
    } const cases[] = {{"", PiNodeUtils::UNCOLLAPSED},
                       {"Unknown", PiNodeUtils::UNKNOWN},
                       {"Uncollapsed", PiNodeUtils::UNCOLLAPSED},
                       {"Hidden", PiNodeUtils::COLLAPSED},
                       {"Collapsed", PiNodeUtils::COLLAPSED}};
    for (Case const& c : cases) {
        // A feeds B and the group G, which stands for its boundary.
        for (RCShdPtr<PiNode> const& n : {B, RCShdPtr<PiNode>(G)}) {
            n->removeValue(PiNodeUtils::COLLAPSED_VALUE);
            if (!c.consumerState.empty())
                setState(n, c.consumerState);
        }
        EXPECT_EQ(PiNodeUtils::getCollapseType(*A), c.type) << c.consumerState;
    }
    EXPECT_TRUE(PiGraphObject::areEqual(PiNodeUtils::getCollapseNode(*gin), G));
    EXPECT_TRUE(PiGraphObject::areEqual(PiNodeUtils::getCollapseNode(*gout), G));
    EXPECT_TRUE(PiGraphObject::areEqual(PiNodeUtils::getCollapseNode(*boundary(gin)->getOutput()),
                                        boundary(gin)));

    // 30 diamonds: a walk without its visited set would take 2^30 routes.
    RCShdPtr<PiNode> top = make(pipe, "T");
    RCShdPtr<PiNode> bottom = diamonds(top, 30, "D");
    for (RCShdPtr<PiNode> const& n : {top, bottom})
        setState(n, "Uncollapsed");
    int const undoCount = graph->getCommandStack().getUndoCount();
    std::vector<RCShdPtr<PiNode>> stops;
    PiNodeUtils::collapseNodeTree(bottom, PiNodeUtils::IGNORE_OUTPUTS, PiNodeUtils::WHOLE_TREE,
                                  "Collapsed", &stops);
    std::string state;
    ASSERT_TRUE(PiNodeUtils::hasStoredValue(PiNodeUtils::COLLAPSED_VALUE, *top, &state));
    EXPECT_EQ(state, "Collapsed");
    EXPECT_TRUE(stops.empty());
    EXPECT_EQ(graph->getCommandStack().getUndoCount(), undoCount);
    EXPECT_FALSE(PiNodeUtils::hasStoredValue(PiNodeUtils::COLLAPSED_VALUE, *root->findNode("D5L")));

    // Checking outputs: a node whose consumers are not all folded stops the fold there; the
    // bottom has no consumer at all.
    {
        PiUndoGuardNoLog quiet(*graph);
        setState(top, "Uncollapsed");
        setState(bottom, "Uncollapsed");
    }
    PiNodeUtils::collapseNodeTree(bottom, PiNodeUtils::CHECK_OUTPUTS, PiNodeUtils::WHOLE_TREE,
                                  "Collapsed", &stops);
    for (auto const& [n, want] : {std::pair{top, "Unknown"}, std::pair{bottom, "Collapsed"}}) {
        PiNodeUtils::hasStoredValue(PiNodeUtils::COLLAPSED_VALUE, *n, &state);
        EXPECT_EQ(state, want);
    }
    EXPECT_EQ(stops.size(), 88u) << "once each, but the bottom and the two it alone reads";
    EXPECT_EQ(graph->getCommandStack().getUndoCount(), undoCount);
    EXPECT_THROW(PiNodeUtils::setStoredValue("Mode", *B, "x"), ExBase) << "an int value";
}

// Result marks toggle on every output as one step.
TEST_F(SocketUtilTest, ResultStateToggles) {
    EXPECT_EQ(PiNodeUtils::getResultState(*R), 0);
    EXPECT_EQ(PiNodeUtils::toggleResultState(*R), 1);
    EXPECT_EQ(out(R, "Matte")->getResultState() + out(R, "Output")->getResultState(), 2);
    out(R, "Matte")->setResultState(0);
    EXPECT_EQ(PiNodeUtils::toggleResultState(*R), 0) << "one marked output clears them all";
    EXPECT_EQ(PiNodeUtils::getResultState(*R), 0);
    graph->getCommandStack().undo();
    EXPECT_EQ(out(R, "Output")->getResultState(), 1);
}

// Anchors: kept in order, filtered by type, each change one named step, and carried by
// archives and clones; a damaged value is reported.
TEST_F(SocketUtilTest, AnchorsTravelWithTheNode) {
    using AU = PiNodeAnchorUtils;
    PiNodeAnchor const a{"cam", "main"}, b{"light", "key"}, c{"cam", "side"};
    EXPECT_FALSE(AU::hasAnchors(*A));
    EXPECT_TRUE(AU::getAnchors(*A).empty());
    for (PiNodeAnchor const& x : {a, b, c})
        AU::addAnchor(*A, x);
    EXPECT_EQ(AU::getAnchors(*A), (std::vector<PiNodeAnchor>{a, b, c}));
    EXPECT_EQ(AU::getAnchors(*A, "cam"), (std::vector<PiNodeAnchor>{a, c}));
    EXPECT_TRUE(AU::hasAnchor(*A, b));
    EXPECT_FALSE(AU::hasAnchor(*A, PiNodeAnchor{"cam", "key"}));
    AU::removeAnchor(*A, b);
    EXPECT_EQ(AU::getAnchors(*A), (std::vector<PiNodeAnchor>{a, c}));
    EXPECT_EQ(graph->getCommandStack().getUndoLabel(), "Remove Anchor");

    XmlWriter w;
    graph->archiveNodes({A}, w);
    XmlDocument doc = XmlDocument::parse(w.toString());
    RCShdPtr<PiNode> restored = graph->unarchiveNodes(doc.getRoot(), root).front();
    RCShdPtr<PiNode> cloned = G->cloneNodes({A}).front();
    for (RCShdPtr<PiNode> const& n : {restored, cloned})
        EXPECT_EQ(AU::getAnchors(*n), (std::vector<PiNodeAnchor>{a, c}));

    AU::setAnchors(*A, {b});
    EXPECT_EQ(AU::getAnchors(*A), std::vector<PiNodeAnchor>{b});
    AU::removeAnchors(*A);
    EXPECT_FALSE(AU::hasAnchors(*A));
    for (std::string const label : {"Remove Anchors", "Set Anchors"}) {
        EXPECT_EQ(graph->getCommandStack().getUndoLabel(), label);
        graph->getCommandStack().undo();
    }
    EXPECT_EQ(AU::getAnchors(*A), (std::vector<PiNodeAnchor>{a, c}));
    for (std::string const bad : {"<Anchors><Anchor", "<Other/>"}) {
        PiNodeUtils::setStoredValue(AU::ANCHORS_VALUE, *A, bad);
        EXPECT_THROW(AU::getAnchors(*A), ExBase) << bad;
    }

    PiNodeAnchorRegistry& reg = PiNodeAnchorRegistry::getInstance();
    int const before = reg.getAnchorTypes().getCardinality();
    for (std::string const t : {"cam", "light", "cam"})
        reg.registerAnchorType(t);
    std::vector<std::string> types;
    for (auto it = reg.getAnchorTypes(); !it.atEnd(); it.next())
        types.push_back(it.item());
    EXPECT_EQ(std::vector<std::string>(types.begin() + before, types.end()),
              (std::vector<std::string>{"cam", "light", "cam"}));
}

// The node tests over one node of each kind, and a null node.
TEST_F(SocketUtilTest, NodePredicates) {
    RCShdPtr<PiGraph> other = HoGraph::create("other");
    RCShdPtr<PiNode> target, link, inner, super, expr, value = valueNode(A, "Radius");
    {
        PiUndoGuard g(*other, "Target");
        target = other->getRootNode()->createToolNode(gen, "T");
    }
    {
        PiUndoGuard g(*graph, "Link");
        link = root->createLinkNode("K", PiSocketType::IMAGE, out(target));
        inner = G->createGroupNode("Inner");
        super = root->createGroupNode("Super", pipe);
        auto const sockets = [](auto& d) {
            d.produces("Value", PiSocketType::DOUBLE);
        };
        expr = root->createToolNode(
            testTool({"Expr", "Math"}, sockets, [] { return new ExprController; }), "E");
        rcCast<PiValueNode>(value)->getInput()->connect(out(expr, "Value"));
    }
    EXPECT_TRUE(U::hasExpression(in(A, "Radius")));
    EXPECT_FALSE(U::hasExpression(in(A, "Source")) || U::hasExpression(in(B, "Source")));
    EXPECT_FALSE(U::hasAnimation(in(A, "Radius")));
    RCShdPtr<PiNode> const bin = boundary(gin);
    auto inG = PiIsNodeInGroupNode(G),
         nested = PiIsNodeInGroupNode(root, PiIsNodeInGroupNode::NESTED);
    struct Case {
        char const* name;
        PiNodePredicate p;
        std::vector<RCShdPtr<PiNode>> yes;
    } const cases[] = {
        {"boundary", PiIsBoundaryNode(), {bin}},
        {"dynamic boundary", PiIsDynamicBoundaryNode(), {bin}},
        {"group", PiIsGroupNode(), {G, inner, super}},
        {"tool", PiIsToolNode(), {N, A, C, expr}},
        {"expression", PiIsExpressionNode(), {expr}},
        {"value", PiIsValueNode(), {value}},
        {"link", PiIsLinkNode(), {link}},
        {"super tool", PiIsSuperToolNode(), {super}},
        {"leaf", PiIsLeafNode(), {N, A, value, link, inner, super, expr}},
        {"node", PiIsNode(A), {A}},
        {"id", PiIsNodeId(C->getId()), {C}},
        {"in G", inG.getPredicate(), {C, bin, inner}},
        {"in root, nested", nested, {N, A, value, C, G, bin, link, inner, super, expr}},
        {"in root, direct", PiIsNodeInGroupNode(root), {N, A, value, G, link, super, expr}},
    };
    std::vector<RCShdPtr<PiNode>> const all = {N, A, value, C, G, bin, link, inner, super, expr};
    for (Case const& c : cases) {
        EXPECT_FALSE(c.p(nullptr)) << c.name;
        for (RCShdPtr<PiNode> const& n : all) {
            bool const want = std::find(c.yes.begin(), c.yes.end(), n) != c.yes.end();
            EXPECT_EQ(c.p(n), want) << c.name << " " << n->getNodeName();
        }
    }
    EXPECT_FALSE(PiIsLeafNode()(B)) << "fed by A";
    EXPECT_THROW(PiIsNodeInGroupNode(nullptr), ExBase);
}

namespace {

// A graph that admits no animation.
class StillGraph final : public PiGraphAnimInterface, public PiGroupInterface {
    bool canAnimate() const override { return false; }
};

// Over the tool framework: value nodes with curves, tools with policies.
class SocketUtilAnimTest : public ToolGraphFixture {
protected:
    void SetUp() override {
        ToolGraphFixture::SetUp();
        PiUndoGuard g(*graph, "Gains");
        g1 = root->createToolNode(HoTools::gain(), "G1");
        g2 = root->createToolNode(HoTools::gain(), "G2");
    }
    void TearDown() override {
        g1 = g2 = {};
        ToolGraphFixture::TearDown();
    }
    static RCShdPtr<PiInput> gainOf(RCShdPtr<PiNode> const& n) { return n->findInput("Gain"); }
    static RCShdPtr<PiAnimValueInterface<double>> anim(RCShdPtr<PiNode> const& n) {
        RCShdPtr<PiNode> v = gainOf(n)->getConnectedOutput()->retrieveNode();
        return rcCast<PiAnimValueInterface<double>>(v->getController().lock());
    }
    // Value nodes of the root that feed nothing.
    int orphans() const {
        int count = 0;
        for (auto it = root->getNodes(); !it.atEnd(); it.next())
            if (auto const* v = dynamic_cast<PiValueNode const*>(it.item().get()))
                count += v->getOutput()->getConnectedInputCount() == 0;
        return count;
    }
    void keyed(RCShdPtr<PiNode> const& n) {
        PiUndoGuard g(*graph, "Key");
        anim(n)->setKey(1.0, 2.0);
        anim(n)->setKey(3.0, 4.0);
    }

    RCShdPtr<PiNode> g1, g2;
};

} // namespace

// Animation queries follow the value node's curve and the tool's policy.
TEST_F(SocketUtilAnimTest, AnimationQueries) {
    RCShdPtr<PiInput const> const gain = gainOf(g1);
    auto at = [](double t) {
        return PiTimePath(PiPath::create(), t);
    };
    RCShdPtr<PiNode> const value = gain->getConnectedOutput()->retrieveNode();
    EXPECT_TRUE(U::isAnimatable(gain));
    EXPECT_FALSE(U::hasAnimation(gain) || PiIsAnimatedNode()(value));
    EXPECT_FALSE(U::hasAnimationKey(gain, at(1.0)));
    keyed(g1);
    EXPECT_TRUE(U::hasAnimation(gain) && PiIsAnimatedNode()(value));
    EXPECT_TRUE(U::hasAnimationKey(gain, at(1.0)));
    EXPECT_FALSE(U::hasAnimationKey(gain, at(2.0)));
    EXPECT_FALSE(U::hasExpression(gain));
    for (RCShdPtr<PiInput const> const& none :
         {RCShdPtr<PiInput const>(), RCShdPtr<PiInput const>(g2->findInput("Source"))}) {
        EXPECT_FALSE(U::isAnimatable(none));
        EXPECT_FALSE(U::hasAnimation(none));
    }
    RCShdPtr<PiGraph> still = HoGraph::create(
        "still", {}, [](PiGraph&) { return RCShdPtr<PiNodeController>(new StillGraph); });
    {
        PiUndoGuard g(*still, "Gain");
        still->getRootNode()->createToolNode(HoTools::gain(), "G3");
    }
    EXPECT_FALSE(U::isAnimatable(gainOf(still->getRootNode()->findNode("G3"))));

    PiExpressionServices::setInstance(OPtr<PiExpressionServices>(new ExprServices));
    EXPECT_EQ(U::removeExpressionToken("=expr:a+b"), "a+b");
    EXPECT_EQ(U::removeExpressionToken("=e"), "");
    PiExpressionServices::setInstance(nullptr);
    EXPECT_THROW(U::removeExpressionToken("x"), ExBase);
}

// Resetting goes to the tool's default; copying gives the target its own value node, animated
// or not, drops the one it had and is one undo step.
TEST_F(SocketUtilAnimTest, ResetAndCopyInputs) {
    anim(g1)->setValue(7.0);
    U::resetInput(gainOf(g1));
    EXPECT_EQ(anim(g1)->getValue(0.0), 1.0);

    int const nodes = root->getNodeCount();
    keyed(g1);
    U::copyInput(gainOf(g1), gainOf(g2));
    EXPECT_TRUE(U::hasAnimation(gainOf(g2)));
    EXPECT_EQ(anim(g2)->getValue(3.0), 4.0);
    EXPECT_EQ(graph->getCommandStack().getUndoLabel(), "Copy Input");
    EXPECT_EQ(root->getNodeCount(), nodes);
    EXPECT_EQ(orphans(), 0);
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*graph).empty());
    anim(g2)->setValue(5.0);
    EXPECT_TRUE(U::hasAnimation(gainOf(g1))) << "the copy is the target's own";

    U::copyInput(gainOf(g2), gainOf(g1));
    EXPECT_FALSE(U::hasAnimation(gainOf(g1)));
    EXPECT_EQ(anim(g1)->getValue(1.0), 5.0);
    EXPECT_EQ(root->getNodeCount(), nodes);
    EXPECT_EQ(orphans(), 0);
    graph->getCommandStack().undo();
    EXPECT_TRUE(U::hasAnimation(gainOf(g1)));
    EXPECT_EQ(root->getNodeCount(), nodes);
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*graph).empty());

    U::copyInput(gainOf(g1), g2->findInput("Source")); // types differ: nothing
    EXPECT_FALSE(g2->findInput("Source")->isConnected());
}
