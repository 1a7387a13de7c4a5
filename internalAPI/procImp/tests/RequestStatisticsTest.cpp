#include "EngineTestSupport.h"

#include "StatData.h"
#include "StatList.h"
#include "StatMgr.h"
#include "StatScalar.h"
#include "StatThreadLocal.h"
#include "StatTypes.h"

using namespace VnTest;
using namespace Vn;

namespace {

// Every tile-read sample of a store, in recording order.
std::vector<long long> tileReads(OPtr<StatThreadLocal> store) {
    std::vector<long long> out;
    if (!store)
        return out;
    while (OPtr<StatData> data = store->popStat()) {
        auto c = data->getContainerConst(StatTypes::getTileReadScalarId());
        if (!c)
            continue;
        auto const* list = dynamic_cast<StatList<StatScalar> const*>(c.get());
        for (auto const& s : *list)
            out.push_back(s.getScalar());
    }
    return out;
}

void record(long long v) {
    StatScalar().setScalar(v, StatTypes::getTileReadScalarId());
}

constexpr PxRequest::RequestType kGfx{PxRequest::CONCURRENT, PxRequest::REFERENCED, PxRequest::GFX};

} // namespace

using RequestStatistics = EngineTest;

TEST_F(RequestStatistics, SamplesOfAWholeTreeReachTheCaller) {
    auto* root = new FnRequest([] {
        auto* child = new FnRequest([] {
            record(7);
            auto* grandChild = new FnRequest([] { record(9); });
            runAndWait(grandChild);
        });
        runAndWait(child);
        record(5);
    });
    PxRequestPtr<PxRequest> p(root);
    engine().executeRequest(root, false);
    engine().waitRequest(root);
    // The samples stay with the external request until taken, and are taken once.
    auto values = tileReads(engine().takeRequestStats(root));
    std::sort(values.begin(), values.end());
    EXPECT_EQ(values, (std::vector<long long>{5, 7, 9}));
    EXPECT_FALSE(engine().takeRequestStats(root));
    EXPECT_FALSE(StatMgr::hasLocalStats());
}

TEST_F(RequestStatistics, TheSecondHalfOfAGfxRequestAddsToTheFirst) {
    auto* root = new FnRequest([] {
        auto* g = new FnRequest([] { record(1); }, kGfx);
        g->_complete = [] {
            record(2);
        };
        runAndWait(g);
    });
    PxRequestPtr<PxRequest> p(root);
    engine().executeRequest(root, false);
    engine().waitRequest(root);
    EXPECT_EQ(tileReads(engine().takeRequestStats(root)), (std::vector<long long>{1, 2}));
}

// The GFX worker completes what it holds pending before it sleeps in a wait: the samples of the
// request it is running then are kept, and nothing is reported as left behind.
TEST_F(RequestStatistics, AGfxWaitKeepsTheSamplesOfTheRequestItRuns) {
    engine().setMaxRunningWorkers(3);
    std::atomic<bool> releaseX{false};
    PxRequestPtr<PxRequest> x(
        new FnRequest([&] { eventually([&] { return releaseX.load(); }, 30.0); }));
    engine().executeRequest(x.get(), false);
    ASSERT_TRUE(eventually(
        [&] { return x->getStateObj().load().getStatus() == PxRequestState::EXECUTING; }));
    LogCapture log;
    auto* root = new FnRequest([&] {
        // g0 holds the GFX worker until g1 and g2 are queued: g1 is then pending while g2 waits.
        std::atomic<bool> queued{false};
        auto* g0 = new FnRequest([&] { eventually([&] { return queued.load(); }); }, kGfx);
        auto* g1 = new FnRequest([] { record(1); }, kGfx);
        auto* g2 = new FnRequest(
            [&] {
                record(2);
                engine().waitRequest(x.get());
                record(3);
            },
            kGfx);
        PxRequestPtr<PxRequest> p0(g0), p1(g1), p2(g2);
        engine().executeRequest(g0, false);
        engine().executeRequest(g2, false);
        engine().executeRequest(g1, false);
        queued = true;
        eventually([&] { return x->getStateObj().load()._waiters != nullptr; });
        releaseX = true;
        for (auto* g : {g0, g1, g2})
            engine().waitRequest(g);
    });
    PxRequestPtr<PxRequest> p(root);
    engine().executeRequest(root, false);
    engine().waitRequest(root);
    engine().waitRequest(x.get());
    auto values = tileReads(engine().takeRequestStats(root));
    std::sort(values.begin(), values.end());
    EXPECT_EQ(values, (std::vector<long long>{1, 2, 3}));
    EXPECT_EQ(log.count({"Unexpected statistics"}), 0);
}
