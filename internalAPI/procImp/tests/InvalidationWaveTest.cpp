// Waves of invalidation over deep and shared graphs, and over nodes that go while a wave runs.

#include "EngineTestSupport.h"

#include "PxEx.h"
#include "PxPassThroughNode.h"
#include "PxValueNode.h"
#include "RCCbHandler.h"

#include <cmath>
#include <functional>
#include <limits>

using namespace VnTest;
using namespace Vn;

namespace {

// Counts the invalidations reaching it; may move them to another stream, and may act on arrival.
class Counter : public PxAnimValueProtocol<int> {
public:
    static constexpr int kKeep = -100;
    explicit Counter(int remapTo = kKeep) : PxNode(PxNode::Init{"Counter"}), _remapTo(remapTo) {}
    PxResult<int> getValue(PxTimeContext const&) const override { return PxResult<int>(0); }
    void invalidateAndReinitialize(PxValidityInterval const&, PxUPtr<PxNode const> const&,
                                   int) override {
        ++_arrivals;
        if (_onArrival)
            _onArrival();
    }
    bool propagateAndRemapInvalidation(PxValidityInterval*, PxUPtr<PxNode const> const&,
                                       int* stream) const override {
        if (_remapTo != kKeep)
            *stream = _remapTo;
        return true;
    }
    std::atomic<int> _arrivals{0};
    std::function<void()> _onArrival;

private:
    int _remapTo;
};

void link(PxStrongHndl<Counter> const& parent, PxStrongHndl<Counter> const& child) {
    parent->registerChild(PxNodePtr<PxNode const>(child));
}

void invalidateOnAWorker(PxStrongHndl<Counter> const& node, int stream = -2) {
    PxMutationRequest::submit(
        new PxInvalidationRequest(PxUPtr<PxNode const>(node), PxValidityInterval::FULL, stream));
    engine().sync();
}

} // namespace

using InvalidationWaves = EngineTest;

TEST_F(InvalidationWaves, AHundredThousandNodeChainIsInvalidatedToTheTop) {
    constexpr int kNodes = 100000;
    std::vector<PxStrongHndl<Counter>> chain;
    chain.reserve(kNodes);
    chain.push_back(makeNode(new Counter));
    for (int i = 1; i < kNodes; ++i) {
        chain.push_back(makeNode(new Counter));
        link(chain[i], chain[i - 1]);
    }
    invalidateOnAWorker(chain.front());
    EXPECT_EQ(chain.back()->_arrivals.load(), 1);
    EXPECT_EQ(chain[kNodes / 2]->_arrivals.load(), 1);
}

// Ladders of rungs: each rung goes from its bottom through `ways` (each moving the wave to a
// stream, or keeping it) to its top, which is the next rung's bottom. A wave reaches a node once
// per interval and stream, however many ways lead there.
TEST_F(InvalidationWaves, ShareGraphsAreReachedOncePerStream) {
    struct Case {
        char const* name;
        std::vector<int> ways;
        int rungs;
        int topArrivals;
    };
    constexpr int K = Counter::kKeep;
    Case const cases[] = {
        {"diamond", {K, K}, 1, 1},
        {"ladder of 24 diamonds", {K, K}, 24, 1},
        {"streams 1, 0, 1", {1, 0, 1}, 1, 2},
        {"ladder of streams 1, 0, 1", {1, 0, 1}, 14, 2},
        {"one stream three ways", {3, 3, 3}, 6, 1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<PxStrongHndl<Counter>> nodes;
        auto const bottom = makeNode(new Counter);
        nodes.push_back(bottom);
        PxStrongHndl<Counter> below = bottom;
        for (int r = 0; r < c.rungs; ++r) {
            auto top = makeNode(new Counter);
            for (int stream : c.ways) {
                auto way = makeNode(new Counter(stream));
                link(way, below);
                link(top, way);
                nodes.push_back(way);
            }
            nodes.push_back(top);
            below = top;
        }
        invalidateOnAWorker(bottom);
        EXPECT_EQ(below->_arrivals.load(), c.topArrivals);
        invalidateOnAWorker(bottom); // the next wave comes through again
        EXPECT_EQ(below->_arrivals.load(), 2 * c.topArrivals);
    }
}

TEST_F(InvalidationWaves, AnIntervalWithANaNEndIsRefused) {
    double const nan = std::numeric_limits<double>::quiet_NaN();
    auto node = makeNode(new Counter);
    for (PxValidityInterval const& bad :
         {PxValidityInterval(nan, 1.0), PxValidityInterval(0.0, nan),
          PxValidityInterval(nan, nan)}) {
        EXPECT_THROW(node->invalidate(bad, 0), PxEx::ExInvalidParameter);
        EXPECT_THROW(PxInvalidationRequest(PxUPtr<PxNode const>(node), bad, 0),
                     PxEx::ExInvalidParameter);
    }
    EXPECT_EQ(node->_arrivals.load(), 0);
}

namespace {
std::atomic<bool> g_topGone{false};
class Top final : public Counter {
public:
    ~Top() override { g_topGone = true; }
};
} // namespace

// The wave takes the parents of a node and then calls them one by one: a parent whose last
// handle goes meanwhile is still whole when its turn comes.
TEST_F(InvalidationWaves, AParentLetGoDuringAWaveIsReachedWhole) {
    g_topGone = false;
    auto bottom = makeNode(new Counter);
    auto first = makeNode(new Counter);
    auto top = makeNode(new Top);
    link(first, bottom);
    link(top, bottom);
    bool goneWhenReached = true;
    top->_onArrival = [&] {
        goneWhenReached = g_topGone.load();
    };
    first->_onArrival = [&] {
        top.reset();
    }; // the last handle: on this thread, as a tool would
    bottom->invalidate(PxValidityInterval::FULL, 0);
    EXPECT_FALSE(goneWhenReached);
    EXPECT_TRUE(g_topGone.load());
}

// A pass-through tells each live handler of a wave once, with its stream: a null handler is
// ignored, one added twice is kept once, and one that died or was removed is told no more.
TEST_F(InvalidationWaves, PassThroughHandlersAreToldOnceWhileTheyLive) {
    auto value = makeNode(new PxAnimValueNode<int>(PxNode::Init{"v"}, PxResult<int>(1)));
    auto through =
        makeNode(new PxPassThroughNode<PxAnimValueProtocol<int>>(PxNode::Init{"pass"}, value));
    using Info = PxPassThroughProtocol::InvalidationInfo const;
    using Handler = PxPassThroughProtocol::InvalidationHandler;
    std::atomic<int> keptCalls{0}, goneCalls{0};
    auto kept = makeRCCbHandler<Info>([&](Info& info) {
        EXPECT_EQ(info.stream, 4);
        ++keptCalls;
    });
    auto gone = makeRCCbHandler<Info>([&](Info&) { ++goneCalls; });
    for (RCWeakPtr<Handler> const& h : {RCWeakPtr<Handler>(), RCWeakPtr<Handler>(kept),
                                        RCWeakPtr<Handler>(kept), RCWeakPtr<Handler>(gone)})
        PxMutationRequest::submit(
            new PxAddInvalidateCbRequest(PxUPtr<PxPassThroughProtocol>(through), h));
    auto wave = [&] {
        PxMutationRequest::submit(
            new PxInvalidationRequest(PxUPtr<PxNode const>(through), PxValidityInterval::FULL, 4));
        engine().sync();
    };
    wave();
    EXPECT_EQ(keptCalls.load(), 1);
    EXPECT_EQ(goneCalls.load(), 1);
    gone.reset();
    wave();
    EXPECT_EQ(keptCalls.load(), 2);
    EXPECT_EQ(goneCalls.load(), 1);
    // Removed once, it is gone.
    PxPassThroughProtocol* raw = through.get();
    runAndWait(new FnRequest(
        [&] {
            raw->removeInvalidateCb(RCWeakPtr<Handler>(kept));
            raw->invalidate(PxValidityInterval::FULL, 4);
        },
        PxRequest::RequestType(PxRequest::SEQUENTIAL)));
    EXPECT_EQ(keptCalls.load(), 2);
}
