#include "EngineTestSupport.h"

#include "ExBase.h"
#include "PxEx.h"
#include "PxImageSourceNodes.h"
#include "PxNodeSingleton.h"
#include "PxPassThroughNode.h"
#include "PxValueNode.h"

#include <functional>
#include <mutex>
#include <thread>

using namespace VnTest;
using namespace Vn;

namespace {

// A node that records the invalidations reaching it, and may move them to another stream.
class Recorder final : public PxAnimValueProtocol<int> {
public:
    explicit Recorder(char const* name = "Recorder") : PxNode(PxNode::Init{name}) {}
    PxResult<int> getValue(PxTimeContext const&) const override { return PxResult<int>(0); }
    void invalidateAndReinitialize(PxValidityInterval const& interval, PxUPtr<PxNode const> const&,
                                   int stream) override {
        std::lock_guard g(_m);
        _received.push_back({interval, stream});
    }
    bool propagateAndRemapInvalidation(PxValidityInterval*, PxUPtr<PxNode const> const&,
                                       int* stream) const override {
        if (_remapTo != kKeep)
            *stream = _remapTo;
        return true;
    }
    std::vector<std::pair<PxValidityInterval, int>> received() {
        std::lock_guard g(_m);
        return _received;
    }
    static constexpr int kKeep = -100;
    int _remapTo = kKeep;

private:
    std::mutex _m;
    std::vector<std::pair<PxValidityInterval, int>> _received;
};

void link(PxStrongHndl<PxNode> const& parent, PxStrongHndl<PxNode> const& child) {
    parent->registerChild(PxNodePtr<PxNode const>(child));
}

void invalidateAll(PxStrongHndl<PxNode> const& node, int stream = -2) {
    PxMutationRequest::submit(
        new PxInvalidationRequest(PxUPtr<PxNode const>(node), PxValidityInterval::FULL, stream));
    engine().sync();
}

using IntNode = PxValueNode<int>;

} // namespace

using ValueNodes = EngineTest;

// A set is seen by the next query of the same thread, and invalidates the parents even when it
// sets the same value.
TEST_F(ValueNodes, ASetIsSeenByTheNextQueryAndInvalidatesTheParentsAlways) {
    auto node =
        makeNode(new IntNode(PxNode::Init{"int"}, PxResult<int>(1, PxValidityInterval(0, 5))));
    auto parent = makeNode(new Recorder);
    link(parent, node);
    EXPECT_EQ(node->getNbParents(), 1);
    for (int v : {2, 3, 3, 4, 5, 6, 7, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}) {
        PxMutationRequest::submit(
            new PxValueSetRequest<int>(PxUPtr<IntNode>(node), PxResult<int>(v)));
        auto const q = submitted(new PxValueRequest<int>(PxUPtr<PxValueProtocol<int> const>(node)));
        ASSERT_EQ(q->getValue().getValue(), v);
        EXPECT_TRUE(q->getValue().getValidityInterval().isFull());
    }
    engine().sync();
    auto const got = parent->received();
    ASSERT_EQ(got.size(), 21u);
    EXPECT_TRUE(got.back().first.isFull());
    EXPECT_EQ(got.back().second, -2);
}

// A diamond's top is reached once per wave (the invalidation tests have the shapes); one let go
// leaves the graph, and the wave stops below it.
TEST_F(ValueNodes, AParentLetGoLeavesTheWaveBelowIt) {
    auto bottom = makeNode(new Recorder("bottom"));
    auto middle = makeNode(new Recorder("middle"));
    auto top = makeNode(new Recorder("top"));
    link(middle, bottom);
    link(top, middle);
    top.reset();
    EXPECT_EQ(middle->getNbParents(), 0);
    invalidateAll(bottom);
    EXPECT_EQ(middle->received().size(), 1u);
}

TEST_F(ValueNodes, ACollapsingPassThroughLetsOnePerStreamThrough) {
    // Three ways from the source to each pass-through, arriving on streams 1, 0 and 1 again.
    auto source = makeNode(new Recorder("source"));
    std::vector<PxStrongHndl<Recorder>> ways;
    for (int stream : {1, 0, 1}) {
        ways.push_back(makeNode(new Recorder("way")));
        ways.back()->_remapTo = stream;
        link(ways.back(), source);
    }
    auto collapsing = makeNode(new PxCollapsingPassThroughNode<PxAnimValueProtocol<int>>(
        PxNode::Init{"collapsing"}, ways[0]));
    for (std::size_t i = 1; i < ways.size(); ++i)
        link(collapsing, ways[i]);
    auto aboveCollapsing = makeNode(new Recorder("above collapsing"));
    link(aboveCollapsing, collapsing);

    invalidateAll(source);
    EXPECT_EQ(aboveCollapsing->received().size(), 2u);
    invalidateAll(source);
    EXPECT_EQ(aboveCollapsing->received().size(), 4u);
}

TEST_F(ValueNodes, SetChildOnlyInvalidatesForANewChild) {
    auto anim = makeNode(new PxAnimValueNode<int>(PxNode::Init{"a"}, PxResult<int>(1)));
    auto anim2 = makeNode(new PxAnimValueNode<int>(PxNode::Init{"b"}, PxResult<int>(2)));
    auto through =
        makeNode(new PxPassThroughNode<PxAnimValueProtocol<int>>(PxNode::Init{"pass"}, anim));
    auto above = makeNode(new Recorder);
    link(above, through);
    auto setChild = [&](PxStrongHndl<PxNode> const& child) {
        PxMutationRequest::submit(new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(through),
                                                        PxUPtr<PxNode const>(child)));
        engine().sync();
    };

    setChild(anim);
    EXPECT_TRUE(above->received().empty());
    setChild(anim2);
    EXPECT_EQ(above->received().size(), 1u);
    EXPECT_EQ(anim->getNbParents(), 0);
    EXPECT_EQ(anim2->getNbParents(), 1);

    auto const q = submitted(new PxAnimValueRequest<int>(
        PxUPtr<PxAnimValueProtocol<int> const>(through), PxTimeContext(3.0)));
    EXPECT_EQ(q->getValue().getValue(), 2);
    // A second read gives the same result object.
    EXPECT_EQ(&q->getValue(), &q->getValue());
}

TEST_F(ValueNodes, AFailedQueryRaisesAtEveryRead) {
    auto const q = submitted(new PxValueRequest<int>(PxUPtr<PxValueProtocol<int> const>()));
    EXPECT_THROW(q->getValue(), ExNullPtr);
    EXPECT_THROW(q->getValue(), ExNullPtr);
}

TEST_F(ValueNodes, GraphObjIdsPassThrough) {
    auto ids = makeNode(new PxGraphObjIdsNode(PxNode::Init{"ids"}, 12, 3));
    auto through =
        makeNode(new PxPassThroughNode<PxGraphObjIdsProtocol>(PxNode::Init{"pass"}, ids));
    auto const q =
        submitted(new PxGraphObjIdsRequest(PxUPtr<PxGraphObjIdsProtocol const>(through)));
    EXPECT_EQ(q->getNodeId(), 12);
    EXPECT_EQ(q->getOutputSocketId(), 3);
}

TEST_F(ValueNodes, HandlesBelongToTheirSide) {
    auto node = makeNode(new IntNode(PxNode::Init{"int"}, PxResult<int>(1)));
    std::string onWorker, outside;
    IntNode* raw = node.get();
    runAndWait(new FnRequest([&] {
        try {
            PxStrongHndl<IntNode> h(raw);
        } catch (ExAssertionFailed const& e) {
            onWorker = e.getReason();
        }
        PxNodePtr<IntNode> fine(raw); // workers hold nodes this way
    }));
    try {
        PxNodePtr<IntNode> p(raw);
    } catch (ExAssertionFailed const& e) {
        outside = e.getReason();
    }
    EXPECT_EQ(onWorker, "!PxRequestMgr::getInstance().isWorkerThreadCurrent()");
    EXPECT_EQ(outside, "PxRequestMgr::getInstance().isWorkerThreadCurrent()");
}

namespace {
class Counted final : public PxAnimValueProtocol<int> {
public:
    explicit Counted(std::atomic<int>* destroyed) : PxNode(PxNode::Init{"c"}), _d(destroyed) {}
    PxResult<int> getValue(PxTimeContext const&) const override { return PxResult<int>(1); }

protected:
    void destroy() override {
        ++*_d;
        PxNode::destroy();
    }

private:
    std::atomic<int>* _d;
};

class MadeOnce final : public PxNodeSingleton<PxAnimValueProtocol<int>> {
public:
    std::atomic<int> made{0};
    std::atomic<int> destroyed{0};

protected:
    PxStrongHndl<PxAnimValueProtocol<int>> createNode() override {
        ++made;
        return PxStrongHndl<PxAnimValueProtocol<int>>(new Counted(&destroyed));
    }
};
} // namespace

TEST_F(ValueNodes, WeakHandlesAndSingletons) {
    std::atomic<int> destroyed{0};
    PxWeakHndl<Counted> weak;
    {
        PxStrongHndl<Counted> strong(new Counted(&destroyed));
        weak = PxWeakHndl<Counted>(strong);
        EXPECT_EQ(weak.lock().get(), strong.get());
    }
    EXPECT_EQ(destroyed.load(), 1);
    EXPECT_TRUE(weak.lock().isNull());

    MadeOnce singleton;
    std::vector<std::thread> threads;
    std::atomic<PxAnimValueProtocol<int> const*> seen[16];
    for (int i = 0; i < 16; ++i)
        threads.emplace_back([&, i] { seen[i] = singleton.getNodeInstance().get(); });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(singleton.made.load(), 1);
    for (auto const& s : seen)
        EXPECT_EQ(s.load(), singleton.getNodeInstance().get());
}

TEST(ValidityInterval, BoundsIntersectionAndFrames) {
    using VI = PxValidityInterval;
    EXPECT_TRUE(VI::FULL.isFull());
    EXPECT_TRUE(VI::EMPTY.isEmpty());
    EXPECT_TRUE(VI(2, 1).isEmpty());
    EXPECT_EQ(VI(0, 10).intersect(VI(5, 20)), VI(5, 10));
    EXPECT_TRUE(VI(0, 1).intersect(VI(2, 3)).isEmpty());
    EXPECT_EQ(VI::FULL.intersect(VI(1, 2)), VI(1, 2));
    EXPECT_TRUE(VI(1, 2).contains(1.0));
    EXPECT_FALSE(VI(1, 2).contains(2.0)); // the upper bound is exclusive
    // Infinite bounds are never shifted.
    EXPECT_EQ(VI(VI::kNegInfinity, 3).shifted(2), VI(VI::kNegInfinity, 5));
    EXPECT_TRUE(VI::FULL.shifted(100).isFull());
    // Seconds to whole frames at 24 fps: frames 24 to 48 start inside [1, 2).
    EXPECT_EQ(VI(1, 2).getDiscreteInterval(Rational(24)), VI(24, 48));
    EXPECT_EQ(VI(1.01, 2).getDiscreteInterval(Rational(24)), VI(25, 48));
    EXPECT_TRUE(VI::FULL.getDiscreteInterval(Rational(30000, 1001)).isFull());
}

// A mutation that could only fail on a worker, later, is refused where it is made.
TEST_F(ValueNodes, MutationsRefuseWhatTheyCouldNotApply) {
    auto anim = makeNode(new PxAnimValueNode<int>(PxNode::Init{"a"}, PxResult<int>(1)));
    auto other = makeNode(new PxAnimValueNode<double>(PxNode::Init{"d"}, PxResult<double>(1.0)));
    auto through =
        makeNode(new PxPassThroughNode<PxAnimValueProtocol<int>>(PxNode::Init{"pass"}, anim));
    PxUPtr<PxPassThroughProtocol> const pass(through);
    struct Case {
        char const* name;
        std::function<PxRequest*()> make;
    };
    Case const cases[] = {
        {"value without a node",
         [] {
             return new PxValueSetRequest<int>(PxUPtr<IntNode>(), PxResult<int>(1));
         }},
        {"animated value without a node",
         [] {
             return new PxAnimValueSetRequest<int>(PxUPtr<PxAnimValueNode<int>>(),
                                                   PxResult<int>(1));
         }},
        {"format without a node",
         [] {
             return new PxImageFormatSetRequest(PxUPtr<PxImageFormatNode>(),
                                                PxImageFormat::INVALID_FORMAT);
         }},
        {"child without a node",
         [&] {
             return new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(),
                                          PxUPtr<PxNode const>(anim));
         }},
        {"null child",
         [&] {
             return new PxSetChildRequest(pass, PxUPtr<PxNode const>());
         }},
        {"child of another kind",
         [&] {
             return new PxSetChildRequest(pass, PxUPtr<PxNode const>(other));
         }},
        {"invalidation without a node",
         [] {
             return new PxInvalidationRequest(PxUPtr<PxNode const>(), PxValidityInterval::FULL, 0);
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_THROW(PxRequestPtr<PxRequest>(c.make()), PxEx::ExInvalidParameter);
    }
    engine().sync();
    EXPECT_EQ(anim->getNbParents(), 1);
    EXPECT_EQ(other->getNbParents(), 0);
}

// A constant gives its value at every time, valid for all of them, through a request as well.
TEST_F(ValueNodes, AConstantAnimatedValueIsTheSameAtAllTimes) {
    auto constant =
        makeNode(new PxConstantAnimValueNode<int>(PxNode::Init{"k"}, PxResult<int>(5, {0, 1})));
    for (double t : {-1e6, 0.0, 0.5, 3.0}) {
        auto const q = submitted(new PxAnimValueRequest<int>(
            PxUPtr<PxAnimValueProtocol<int> const>(constant), PxTimeContext(t)));
        EXPECT_EQ(q->getValue().getValue(), 5);
        EXPECT_TRUE(q->getValue().getValidityInterval().isFull());
    }
}
