#include "EvaluatorTestSupport.h"

#include "ExBase.h"
#include "PxValueNode.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

using namespace VnTest;
using namespace Vn;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

// A node whose evaluation fails.
class Failing final : public PxAnimValueProtocol<double> {
public:
    Failing() : PxNode(PxNode::Init{"Failing"}) {}
    PxResult<double> getValue(PxTimeContext const&) const override {
        throw MsgException<ExBase>(__FILE__, __LINE__, "no value here");
    }
};

using Evaluator = PxNodeEvaluator<double>;

} // namespace

using NodeEvaluator = EngineTest;

TEST_F(NodeEvaluator, SamplesARangeOnAWorkerAndTellsItsUsersOnTheEventThread) {
    auto ramp = makeNode(new Ramp);
    auto ev = makeRC<Evaluator>();
    ReadyCounter ready;
    onEventThread([&] {
        ev->addValuesReadyCallback(&ready);
        ev->addValuesReadyCallback(&ready); // once only
        ev->addValuesReadyCallback(nullptr);
        EXPECT_FALSE(ev->isEvaluating());
        EXPECT_TRUE(ev->getValues().empty());
        EXPECT_TRUE(ev->evaluate(weakOf(ramp), 0.0, 1.0, 4));
        EXPECT_TRUE(ev->isEvaluating());
    });
    ASSERT_TRUE(eventually([&] { return ready.calls() == 1; }));
    EXPECT_TRUE(ready.cameOnEventThread());
    onEventThread([&] {
        EXPECT_FALSE(ev->isEvaluating());
        EXPECT_THAT(ev->getValues(), ElementsAre(1.0, 1.5, 2.0, 2.5, 3.0));
        EXPECT_EQ(ev->getMinTime(), 0.0);
        EXPECT_EQ(ev->getMaxTime(), 1.0);
    });
    EXPECT_THAT(ramp->times(), ElementsAre(0.0, 0.25, 0.5, 0.75, 1.0));

    // A step that rounding carries past the end gives one sample fewer.
    onEventThread([&] { EXPECT_TRUE(ev->evaluate(weakOf(ramp), 0.0, 0.3, 10)); });
    ASSERT_TRUE(eventually([&] { return ready.calls() == 2; }));
    onEventThread([&] {
        auto const& v = ev->getValues();
        ASSERT_EQ(v.size(), 10u);
        EXPECT_DOUBLE_EQ(v[9], 2.0 * 0.27 + 1.0);
        EXPECT_EQ(ev->getMaxTime(), 0.3);
        ev->removeValuesReadyCallback(&ready);
    });
    // The request, and with it its hold on the evaluator, is gone.
    EXPECT_TRUE(eventually([&] { return ev->getRefCount() == 1; }));
}

TEST_F(NodeEvaluator, IntAndBoolNodesGiveOneSamplePerStep) {
    auto intNode = makeNode(new PxAnimValueNode<int>(PxNode::Init{"i"}, PxResult<int>(7)));
    auto boolNode = makeNode(new PxAnimValueNode<bool>(PxNode::Init{"b"}, PxResult<bool>(true)));
    auto ints = makeRC<PxNodeEvaluator<int>>();
    auto bools = makeRC<PxNodeEvaluator<bool>>();
    onEventThread([&] {
        EXPECT_TRUE(ints->evaluate(weakOf(intNode), -1.0, 1.0, 8));
        EXPECT_TRUE(bools->evaluate(weakOf(boolNode), 10.0, 12.0, 2));
        EXPECT_EQ(ints->getValues(), std::vector<int>(9, 7));
        EXPECT_EQ(bools->getValues(), std::vector<bool>(3, true));
        EXPECT_EQ(ints->getMinTime(), -1.0);
        EXPECT_EQ(bools->getMaxTime(), 12.0);
    });
}

TEST_F(NodeEvaluator, ASecondEvaluateWhileOneIsInFlightChangesNothing) {
    auto ramp = makeNode(new Ramp);
    ramp->close();
    auto ev = makeRC<Evaluator>();
    ReadyCounter ready;
    onEventThread([&] {
        ev->addValuesReadyCallback(&ready);
        EXPECT_TRUE(ev->evaluate(weakOf(ramp), 0.0, 1.0, 2));
        EXPECT_FALSE(ev->evaluate(weakOf(ramp), 5.0, 6.0, 4));
        EXPECT_TRUE(ev->isEvaluating());
    });
    ramp->open();
    ASSERT_TRUE(eventually([&] { return ready.calls() == 1; }));
    onEventThread([&] {
        EXPECT_THAT(ev->getValues(), ElementsAre(1.0, 2.0, 3.0));
        EXPECT_EQ(ev->getMinTime(), 0.0);
        ev->removeValuesReadyCallback(&ready);
    });
}

TEST_F(NodeEvaluator, GetValuesDuringAnEvaluationWaitsForTheNewSamples) {
    auto ramp = makeNode(new Ramp);
    auto ev = makeRC<Evaluator>();
    ReadyCounter ready;
    onEventThread([&] {
        ev->addValuesReadyCallback(&ready);
        ASSERT_TRUE(ev->evaluate(weakOf(ramp), 0.0, 1.0, 1));
        EXPECT_THAT(ev->getValues(), ElementsAre(1.0, 3.0));
    });
    ASSERT_TRUE(eventually([&] { return ready.calls() == 1; }));
    ramp->close();
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ramp->open();
    });
    onEventThread([&] {
        ASSERT_TRUE(ev->evaluate(weakOf(ramp), 10.0, 11.0, 2));
        EXPECT_THAT(ev->getValues(), ElementsAre(21.0, 22.0, 23.0));
        EXPECT_EQ(ev->getMinTime(), 10.0);
        EXPECT_EQ(ev->getMaxTime(), 11.0);
        ev->removeValuesReadyCallback(&ready);
    });
    opener.join();
}

TEST_F(NodeEvaluator, ResetBeforeTheEventDropsTheSamplesAndTellsNobody) {
    auto ramp = makeNode(new Ramp);
    auto ev = makeRC<Evaluator>();
    ReadyCounter ready;
    onEventThread([&] {
        ev->addValuesReadyCallback(&ready);
        ASSERT_TRUE(ev->evaluate(weakOf(ramp), 0.0, 1.0, 4));
        ev->getValues(); // done; its event can only run after this function
        ev->reset();
        EXPECT_FALSE(ev->isEvaluating());
        EXPECT_TRUE(ev->getValues().empty());
    });
    // Once the event has run, it no longer holds the evaluator.
    EXPECT_TRUE(eventually([&] { return ev->getRefCount() == 1; }));
    EvEventManager::getInstance().flush();
    EXPECT_EQ(ready.calls(), 0);
    onEventThread([&] {
        EXPECT_TRUE(ev->getValues().empty());
        ev->removeValuesReadyCallback(&ready);
    });
}

TEST_F(NodeEvaluator, BadArgumentsAreRefusedAndLeaveItIdle) {
    auto intNode = makeNode(new PxAnimValueNode<int>(PxNode::Init{"i"}, PxResult<int>(7)));
    auto ramp = makeNode(new Ramp);
    auto ev = makeRC<Evaluator>();
    onEventThread([&] {
        EXPECT_THROW(ev->evaluate(weakOf(intNode), 0.0, 1.0, 4), ExCastFailed);
        EXPECT_FALSE(ev->isEvaluating());
        auto refused = [&](double lo, double hi, int n, char const* why) {
            try {
                ev->evaluate(weakOf(ramp), lo, hi, n);
                ADD_FAILURE() << "accepted [" << lo << ", " << hi << "] with " << n;
            } catch (ExBase const& e) {
                EXPECT_THAT(e.getReason(), HasSubstr(why));
            }
            EXPECT_FALSE(ev->isEvaluating());
        };
        refused(0.0, 1.0, 0, "nbSamples must be at least 1");
        refused(0.0, 1.0, -3, "nbSamples must be at least 1");
        refused(0.0, 1e6, std::numeric_limits<int>::max(), "nbSamples must be at most 1048576");
        refused(1.0, 1.0, 4, "is empty");
        refused(2.0, 1.0, 4, "is empty");
        refused(std::nan(""), 1.0, 4, "is empty");
        refused(0.0, std::numeric_limits<double>::infinity(), 4, "is empty");
        refused(1e16, 1e16 + 2.0, 8, "too narrow");
    });
    EXPECT_TRUE(ramp->times().empty());
}

TEST_F(NodeEvaluator, AFailedSamplingKeepsItsFailureAndLetsTheEvaluatorGo) {
    auto failing = makeNode(new Failing);
    auto ev = makeRC<Evaluator>();
    ReadyCounter ready;
    onEventThread([&] {
        ev->addValuesReadyCallback(&ready);
        ASSERT_TRUE(ev->evaluate(weakOf(failing), 0.0, 1.0, 4));
    });
    ASSERT_TRUE(eventually([&] { return ready.calls() == 1; }));
    onEventThread([&] {
        EXPECT_FALSE(ev->isEvaluating());
        try {
            ev->getValues();
            ADD_FAILURE() << "getValues did not raise";
        } catch (ExBase const& e) {
            EXPECT_THAT(e.getReason(), HasSubstr("no value here"));
        }
        EXPECT_THROW(ev->getMinTime(), ExBase);
    });
    EXPECT_TRUE(eventually([&] { return ev->getRefCount() == 1; }));

    // A node that is gone by the time of the call: the request fails on the null node.
    auto ramp = makeNode(new Ramp);
    auto weak = weakOf(ramp);
    ramp.reset();
    onEventThread([&] { ASSERT_TRUE(ev->evaluate(weak, 0.0, 1.0, 4)); });
    ASSERT_TRUE(eventually([&] { return ready.calls() == 2; }));
    onEventThread([&] { EXPECT_THROW(ev->getValues(), ExNullPtr); });

    // The next evaluation starts clean.
    auto live = makeNode(new Ramp);
    onEventThread([&] { ASSERT_TRUE(ev->evaluate(weakOf(live), 0.0, 2.0, 2)); });
    ASSERT_TRUE(eventually([&] { return ready.calls() == 3; }));
    onEventThread([&] {
        EXPECT_THAT(ev->getValues(), ElementsAre(1.0, 3.0, 5.0));
        ev->removeValuesReadyCallback(&ready);
    });
    EXPECT_TRUE(eventually([&] { return ev->getRefCount() == 1; }));
}

// A reset stops a long sampling soon after, rather than letting it run to its end.
TEST_F(NodeEvaluator, ResetStopsALongSampling) {
    auto ramp = makeNode(new Ramp);
    auto ev = makeRC<Evaluator>();
    ramp->close(); // holds the first sample until the reset is done
    onEventThread([&] { ASSERT_TRUE(ev->evaluate(weakOf(ramp), 0.0, 1e6, 1 << 20)); });
    // The sampling has begun: its worker waits in the first sample.
    ASSERT_TRUE(eventually([] { return engineImp().getSnapshot().nbBlockedWorkers > 0; }));
    onEventThread([&] { ev->reset(); });
    ramp->open();
    EXPECT_TRUE(eventually([] { return engineImp().getNbLiveRequests() == 0; }));
    EXPECT_LE(ramp->times().size(), 64u);
    EvEventManager::getInstance().flush();
    onEventThread([&] { EXPECT_TRUE(ev->getValues().empty()); });
}
