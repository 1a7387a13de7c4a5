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
