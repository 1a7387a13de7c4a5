#include "EvaluatorTestSupport.h"

#include "PxDAGMonitorImp.h"

#include <gtest/gtest.h>

#include <random>

using namespace VnTest;
using namespace Vn;

namespace {

// Every Ramp holds its first sample until two samplings run at once, so the evaluations really
// overlap on several workers; after a few seconds it lets them go alone.
class Rendezvous {
public:
    void arrive() {
        _arrived.fetch_add(1);
        PxWorkerBlockingGuard blocking;
        auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (_arrived.load() < 2 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    int arrived() const { return _arrived.load(); }

private:
    std::atomic<int> _arrived{0};
};

class MeetingRamp final : public PxAnimValueProtocol<double> {
public:
    explicit MeetingRamp(Rendezvous& r) : PxNode(PxNode::Init{"MeetingRamp"}), _r(r) {}
    PxResult<double> getValue(PxTimeContext const& context) const override {
        if (!_met.exchange(true))
            _r.arrive();
        {
            std::lock_guard g(_m);
            _threads.insert(std::this_thread::get_id());
        }
        double const t = context.getTime();
        return PxResult<double>(2.0 * t + 1.0, PxValidityInterval(t, t));
    }
    static std::size_t nbThreads() {
        std::lock_guard g(_m);
        return _threads.size();
    }

private:
    Rendezvous& _r;
    mutable std::atomic<bool> _met{false};
    static std::mutex _m;
    static std::set<std::thread::id> _threads;
};
std::mutex MeetingRamp::_m;
std::set<std::thread::id> MeetingRamp::_threads;

} // namespace

using EvaluatorStress = EngineTest;

TEST_F(EvaluatorStress, ManyEvaluatorsSampleAtOnceOnSeveralWorkers) {
    constexpr int kEvaluators = 8;
    constexpr int kRounds = 30;
    Rendezvous rendezvous;
    std::vector<PxStrongHndl<MeetingRamp>> nodes;
    std::vector<RCShdPtr<PxNodeEvaluator<double>>> evs;
    std::vector<std::unique_ptr<ReadyCounter>> ready;
    for (int i = 0; i < kEvaluators; ++i) {
        nodes.push_back(makeNode(new MeetingRamp(rendezvous)));
        evs.push_back(makeRC<PxNodeEvaluator<double>>());
        ready.push_back(std::make_unique<ReadyCounter>());
    }
    onEventThread([&] {
        for (int i = 0; i < kEvaluators; ++i)
            evs[i]->addValuesReadyCallback(ready[i].get());
    });

    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> samples(1, 400);
    std::uniform_int_distribution<int> start(-100, 100);
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::tuple<double, double, int>> asked;
        for (int i = 0; i < kEvaluators; ++i)
            asked.emplace_back(double(start(rng)), 0.0, samples(rng));
        onEventThread([&] {
            for (int i = 0; i < kEvaluators; ++i) {
                auto& [lo, hi, n] = asked[i];
                hi = lo + n * 0.5; // steps of a half, exact in binary
                ASSERT_TRUE(evs[i]->evaluate(weakOf(nodes[i]), lo, hi, n));
            }
        });
        ASSERT_TRUE(eventually([&] {
            for (auto const& r : ready)
                if (r->calls() != round + 1)
                    return false;
            return true;
        })) << "round "
            << round;
        onEventThread([&] {
            for (int i = 0; i < kEvaluators; ++i) {
                auto const& [lo, hi, n] = asked[i];
                auto const& v = evs[i]->getValues();
                ASSERT_EQ(v.size(), static_cast<std::size_t>(n) + 1) << "evaluator " << i;
                for (int k = 0; k <= n; ++k)
                    ASSERT_EQ(v[k], 2.0 * (lo + 0.5 * k) + 1.0) << "evaluator " << i;
                EXPECT_EQ(evs[i]->getMinTime(), lo);
                EXPECT_EQ(evs[i]->getMaxTime(), hi);
            }
        });
    }
    EXPECT_GE(rendezvous.arrived(), 2);
    EXPECT_GE(MeetingRamp::nbThreads(), 2u);
    onEventThread([&] {
        for (int i = 0; i < kEvaluators; ++i)
            evs[i]->removeValuesReadyCallback(ready[i].get());
    });
    for (auto const& ev : evs)
        EXPECT_TRUE(eventually([&] { return ev->getRefCount() == 1; }));
}

// Outside threads make and drop nodes in groups of their own while others read the list: every
// node lands in the group its thread had open, and the list ends as it began.
TEST_F(EvaluatorStress, NodesComeAndGoFromManyThreadsUnderTheMonitorsLock) {
    constexpr int kThreads = 4;
    constexpr int kNodes = 2000;
    std::size_t const before = PxDAGMonitorImp::getNbNodes();
    std::atomic<int> misplaced{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::vector<PxStrongHndl<Ramp>> kept;
            for (int i = 0; i < kNodes; ++i) {
                // The group stack is shared: the top is this thread's group or one opened after
                // it, but always a named one while this guard lives.
                PxDAGMonitorGroupGuard group("thread " + std::to_string(t));
                auto n = makeNode(new Ramp);
                std::uint32_t g = 0;
                if (!PxDAGMonitorImp::findNodeGroup(n.get(), &g) || g < 2)
                    misplaced.fetch_add(1);
                kept.push_back(std::move(n));
                if (kept.size() > 50)
                    kept.erase(kept.begin());
            }
        });
    }
    std::thread reader([&] {
        while (!stop.load())
            (void)PxDAGMonitorImp::getNbNodes();
    });
    for (auto& th : threads)
        th.join();
    stop.store(true);
    reader.join();
    EXPECT_EQ(misplaced.load(), 0);
    EXPECT_EQ(PxDAGMonitorImp::getNbNodes(), before);
    EXPECT_EQ(PxDAGMonitorImp::getCurrentGroup(), 1u);
}
