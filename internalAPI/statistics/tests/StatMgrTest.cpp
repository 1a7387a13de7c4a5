#include "StatMgr.h"
#include "ExBase.h"
#include "LkSema.h"
#include "StatData.h"
#include "StatEx.h"
#include "StatList.h"
#include "StatListFactory.h"
#include "StatMemPool.h"
#include "StatResourceRegistry.h"
#include "StatScalar.h"
#include "StatStarted.h"
#include "StatThreadLocal.h"
#include "StatTypes.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

std::atomic<int> s_liveContainers{0};

// A container that counts the live ones, so that a test sees when a store is deleted.
class CountedContainer : public StatContainerBase {
public:
    CountedContainer() { s_liveContainers.fetch_add(1); }
    ~CountedContainer() override { s_liveContainers.fetch_sub(1); }
};

class CountedFactory : public StatContainerFactory {
public:
    OPtrRet<StatContainerBase> createContainer() const override {
        return OPtrRet<StatContainerBase>(new CountedContainer);
    }
};

class StatStores : public StatStarted {
protected:
    void SetUp() override {
        StatStarted::SetUp();
        s_liveContainers.store(0);
        _counted =
            StatResourceRegistry::registerResourceType("CountedKind", makeOPtr<CountedFactory>());
    }
    void TearDown() override {
        StatMgr::flushStatistics();
        StatStarted::TearDown();
    }
    StatResourceType _counted;
};

StatResourceType waiting() {
    return StatTypes::getWaitingRequestsId();
}

// A store with one StatData holding the given scalars.
OPtr<StatThreadLocal> storeWith(std::vector<long long> const& values) {
    OPtr<StatThreadLocal> store = StatThreadLocal::create();
    StatScalar s;
    for (long long v : values) {
        s.setScalar(v);
        s.recordStat(store, waiting());
    }
    return store;
}

// The scalars of one StatData, in recording order; empty when it has none.
std::vector<long long> scalarsOf(StatData const& data) {
    std::vector<long long> v;
    UPtr<StatContainerBase const> c = data.getContainerConst(waiting());
    if (auto const* list = dynamic_cast<StatList<StatScalar> const*>(c.get()))
        for (StatScalar const& s : *list)
            v.push_back(s.getScalar());
    return v;
}

template <class F>
void onNewThread(F f) {
    std::thread t(f);
    t.join();
}

} // namespace

TEST_F(StatStores, ANewThreadHasNoStoreAndAskingMakesNone) {
    bool before = true, again = true, released = true, afterGet = false;
    onNewThread([&] {
        before = StatMgr::hasLocalStats();
        again = StatMgr::hasLocalStats();
        released = !StatMgr::releaseLocalStats().isNull();
        StatMgr::getLocalStats();
        afterGet = StatMgr::hasLocalStats();
    });
    EXPECT_FALSE(before);
    EXPECT_FALSE(again);
    EXPECT_FALSE(released) << "asking made a store";
    EXPECT_TRUE(afterGet);
}

TEST_F(StatStores, ReleasingTakesTheStoreOutAndNullAppendsChangeNothing) {
    EXPECT_TRUE(StatMgr::releaseLocalStats().isNull());
    StatMgr::appendStats(nullptr);
    EXPECT_FALSE(StatMgr::hasLocalStats());

    StatScalar s;
    s.setScalar(3, waiting());
    StatThreadLocal* mine = StatMgr::getLocalStats().get();
    StatMgr::appendStats(nullptr);
    EXPECT_EQ(StatMgr::getLocalStats().get(), mine);
    OPtr<StatThreadLocal> taken = StatMgr::releaseLocalStats();
    EXPECT_EQ(taken.get(), mine);
    EXPECT_FALSE(StatMgr::hasLocalStats());
    EXPECT_TRUE(StatMgr::releaseLocalStats().isNull());
    OPtr<StatData> data = taken->popStat();
    ASSERT_FALSE(data.isNull());
    EXPECT_EQ(scalarsOf(*data), (std::vector<long long>{3}));
    EXPECT_FALSE(taken->hasStatistic());
}

TEST_F(StatStores, AStoreAppendedToAnEmptySlotMovesInItself) {
    OPtr<StatThreadLocal> store = storeWith({1});
    StatThreadLocal* given = store.get();
    StatMgr::appendStats(std::move(store));
    EXPECT_TRUE(StatMgr::hasLocalStats());
    EXPECT_EQ(StatMgr::getLocalStats().get(), given);
}

TEST_F(StatStores, AppendedStoresKeepTheirDataInOrder) {
    StatMgr::appendStats(storeWith({1, 2}));
    StatMgr::appendStats(storeWith({3}));
    StatMgr::appendStats(StatThreadLocal::create()); // empty: adds nothing
    StatMgr::appendStats(storeWith({4}));
    // Recording goes to the head data.
    StatScalar s;
    s.setScalar(5, waiting());

    OPtr<StatThreadLocal> all = StatMgr::releaseLocalStats();
    std::vector<std::vector<long long>> seen;
    while (OPtr<StatData> d = all->popStat())
        seen.push_back(scalarsOf(*d));
    EXPECT_EQ(seen, (std::vector<std::vector<long long>>{{1, 2, 5}, {3}, {4}}));
    EXPECT_FALSE(all->hasStatistic());
    EXPECT_TRUE(all->popStat().isNull());

    // Emptied by popping, the queue takes new data at both ends again.
    all->appendStats(storeWith({6}));
    all->appendStats(storeWith({7}));
    OPtr<StatData> first = all->popStat();
    OPtr<StatData> second = all->popStat();
    ASSERT_FALSE(first.isNull());
    ASSERT_FALSE(second.isNull());
    EXPECT_EQ(scalarsOf(*first), (std::vector<long long>{6}));
    EXPECT_EQ(scalarsOf(*second), (std::vector<long long>{7}));
    EXPECT_FALSE(all->hasStatistic());
    EXPECT_THROW(all->appendStats(OPtr<StatThreadLocal>(all.get())), ExAssertionFailed);
}

TEST_F(StatStores, DataMadeBeforeAKindHasNoSlotForIt) {
    OPtr<StatData> old = StatData::create();
    EXPECT_EQ(old->getNbSlots(), StatResourceRegistry::getNbResources());
    EXPECT_TRUE(old->getContainerConst(waiting()).isNull()) << "containers are made on first use";
    UPtr<StatContainerBase> made = old->getContainer(waiting());
    EXPECT_FALSE(made.isNull());
    EXPECT_EQ(old->getContainer(waiting()), made);
    EXPECT_EQ(old->getContainerConst(waiting()).get(), made.get());

    StatResourceType late = StatResourceRegistry::registerResourceType(
        "LateKind", StatListFactory<StatScalar>::create());
    EXPECT_TRUE(old->getContainerConst(late).isNull());
    EXPECT_THROW(old->getContainer(late), StatExInvalid);
    OPtr<StatData> fresh = StatData::create();
    EXPECT_FALSE(fresh->getContainer(late).isNull());
    EXPECT_THROW(fresh->getContainer(StatResourceType()), StatExInvalid);
    EXPECT_TRUE(fresh->getContainerConst(StatResourceType()).isNull());
}

TEST_F(StatStores, AThreadsStoreGoesWhenTheThreadEnds) {
    onNewThread([&] { StatMgr::getContainer(_counted); });
    EXPECT_EQ(s_liveContainers.load(), 0);

    // A store taken out of the slot is the taker's, and outlives the thread.
    OPtr<StatThreadLocal> kept;
    onNewThread([&] {
        StatMgr::getContainer(_counted);
        kept = StatMgr::releaseLocalStats();
    });
    EXPECT_EQ(s_liveContainers.load(), 1);
    kept.reset();
    EXPECT_EQ(s_liveContainers.load(), 0);
}

TEST_F(StatStores, FlushDropsOnlyTheCallingThreadsStore) {
    LkSema recorded("recorded", 0);
    LkSema flushed("flushed", 0);
    bool otherStillHas = false;
    std::thread other([&] {
        StatMgr::getContainer(_counted);
        recorded.post();
        flushed.wait();
        otherStillHas = StatMgr::hasLocalStats();
    });
    recorded.wait();
    StatMgr::getContainer(_counted);
    EXPECT_EQ(s_liveContainers.load(), 2);
    StatMgr::flushStatistics();
    EXPECT_FALSE(StatMgr::hasLocalStats());
    EXPECT_EQ(s_liveContainers.load(), 1);
    flushed.post();
    other.join();
    EXPECT_TRUE(otherStillHas);
    EXPECT_EQ(s_liveContainers.load(), 0);
}

TEST_F(StatStores, StoresAndValuesOutliveAStopOfThePackage) {
    LkSema recorded("recorded", 0);
    LkSema restarted("restarted", 0);
    std::thread other([&] {
        StatMgr::getContainer(_counted);
        recorded.post();
        restarted.wait();
        // The thread ends with its store from before the stop.
    });
    recorded.wait();
    OPtr<StatThreadLocal> held = storeWith({1, 2});
    StatScalar value;
    value.setScalar(8);
    StatMgr::getContainer(_counted);

    InInitMgr::getInstance().finalize();
    EXPECT_FALSE(StatMemPool::isInitialized());
    EXPECT_FALSE(StatMgr::hasLocalStats()) << "the stopping thread's store is dropped";
    EXPECT_EQ(s_liveContainers.load(), 1);
    EXPECT_THROW(StatMemPool::alloc(16), ExAssertionFailed);
    EXPECT_EQ(value.getScalar(), 8);
    held.reset();
    InInitMgr::getInstance().initialize();
    _counted =
        StatResourceRegistry::registerResourceType("CountedKind", makeOPtr<CountedFactory>());
    restarted.post();
    other.join();
    EXPECT_EQ(s_liveContainers.load(), 0);
    value.setScalar(9, waiting());
    EXPECT_EQ(value.getScalar(), 9);
}
