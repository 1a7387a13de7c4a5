#include "EngineTestSupport.h"

#include "ExBase.h"
#include "PxEx.h"
#include "PxGeometryCacheNode.h"
#include "PxPassThroughProtocol.h"

#include <array>
#include <cmath>
#include <limits>
#include <optional>

using namespace VnTest;
using namespace Vn;

namespace {

// Makes a mesh valid over the whole second of the time asked, once its gate is open. While the
// gate is shut it waits, and notices cancellation.
class Mesher final : public PxGeometryProtocol {
public:
    Mesher() : PxNode(PxNode::Init{"Mesher"}) {}
    PxGeometryResult getGeometry(PxGeometryContext const& context) const override {
        ++_entered;
        while (!_open.load()) {
            engine().checkCancelled();
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        if (_failNext.exchange(false))
            throw MsgException<ExBase>(__FILE__, __LINE__, "no mesh today");
        ++_made;
        double const low = std::floor(context.getTime());
        PxValidityInterval const vi =
            _emptyInterval ? PxValidityInterval(low + 1, low) : PxValidityInterval(low, low + 1);
        return PxGeometryResult(RCShdPtr<SdMesh const>(new SdMesh), vi);
    }

    mutable std::atomic<int> _entered{0};
    mutable std::atomic<int> _made{0};
    std::atomic<bool> _open{true};
    mutable std::atomic<bool> _failNext{false};
    std::atomic<bool> _emptyInterval{false};
};

GeAffineMatrix3<float> placedAt(float x) {
    return GeAffineMatrix3<float>(1, 0, 0, 0, 1, 0, 0, 0, 1, x, 0, 0);
}

class GeometryCaching : public EngineTest {
protected:
    // The handles are let go in TearDown.
    ~GeometryCaching() noexcept override {}
    void SetUp() override {
        EngineTest::SetUp();
        // Room for a worker in the child and another making a second mesh beside it.
        engine().setMaxRunningWorkers(3);
        _mesher = PxStrongHndl<Mesher>(new Mesher);
        PxNode::init(PxStrongHndl<PxNode>(_mesher));
        _cache = PxStrongHndl<PxGeometryCacheNode>(new PxGeometryCacheNode(
            PxNode::Init{"cache"}, PxStrongHndl<PxGeometryProtocol const>(_mesher)));
        PxNode::init(PxStrongHndl<PxNode>(_cache));
    }
    // Workers for the requests of a test that all run at once.
    int poolSize() const override { return 8; }
    void TearDown() override {
        // A test that stopped early leaves its requests behind the gate.
        _mesher->_open = true;
        for (auto* r : _asks)
            engine().cancelRequest(r);
        for (auto* r : _asks) {
            try {
                engine().waitRequest(r);
            } catch (ExBase const&) {
            }
            engine().releaseRequest(r);
        }
        _cache.reset();
        _mesher.reset();
        EngineTest::TearDown();
    }

    // Released at the end of the test.
    using Ask = PxGeometryRequest*;
    Ask ask(double t, GeAffineMatrix3<float> const& placement = {}) {
        Ask r = new PxGeometryRequest(PxUPtr<PxGeometryProtocol const>(_cache),
                                      PxGeometryContext(t, placement));
        _asks.push_back(r);
        engine().executeRequest(r, false);
        return r;
    }
    SdMesh const* meshAt(double t, GeAffineMatrix3<float> const& placement = {}) {
        return ask(t, placement)->getGeometry().getValue().get();
    }
    void invalidate(PxValidityInterval const& vi) {
        PxMutationRequest::submit(new PxInvalidationRequest(PxUPtr<PxNode const>(_cache), vi, -2));
        engine().sync();
    }
    static int blocked() { return engineImp().getSnapshot().nbBlockedWorkers; }
    // With the gate shut, three asks for one mesh: the first makes it, the other two wait.
    std::array<Ask, 3> threeAsksWhileShut() {
        _mesher->_open = false;
        Ask const first = ask(0.5);
        EXPECT_TRUE(eventually([&] { return _mesher->_entered.load() == 1; }));
        std::array<Ask, 3> const asks{first, ask(0.5), ask(0.5)};
        EXPECT_TRUE(eventually([&] { return blocked() == 2; }));
        return asks;
    }
    PxGeometryCacheNode::CacheCounts counts() const { return _cache->getCacheCounts(); }

    PxStrongHndl<Mesher> _mesher;
    PxStrongHndl<PxGeometryCacheNode> _cache;
    std::vector<PxGeometryRequest*> _asks;
};

} // namespace

TEST_F(GeometryCaching, ConcurrentAsksForOneMeshMakeItOnce) {
    auto const [first, second, third] = threeAsksWhileShut();
    _mesher->_open = true;
    SdMesh const* mesh = first->getGeometry().getValue().get();
    EXPECT_EQ(second->getGeometry().getValue().get(), mesh);
    EXPECT_EQ(third->getGeometry().getValue().get(), mesh);
    EXPECT_EQ(second->getGeometry().getValidityInterval(), PxValidityInterval(0, 1));
    EXPECT_EQ(_mesher->_entered.load(), 1);
    // Finished: the next ask is a hit.
    EXPECT_EQ(meshAt(0.75), mesh);
    EXPECT_EQ(_mesher->_entered.load(), 1);
    EXPECT_EQ(counts().nbPending, 0);
}

TEST_F(GeometryCaching, OnlyTimesWithinTheToleranceWaitForAMeshBeingMade) {
    _mesher->_open = false;
    Ask first = ask(0.5);
    ASSERT_TRUE(eventually([&] { return _mesher->_entered.load() == 1; }));
    Ask near = ask(0.5 + 5e-6);
    ASSERT_TRUE(eventually([&] { return blocked() == 1; }));
    Ask far = ask(0.5 + 7e-6);
    ASSERT_TRUE(eventually([&] { return _mesher->_entered.load() == 2; }));
    // Another placement is another mesh, however close the time.
    Ask elsewhere = ask(0.5, placedAt(1));
    ASSERT_TRUE(eventually([&] { return _mesher->_entered.load() == 3; }));
    _mesher->_open = true;
    SdMesh const* mesh = first->getGeometry().getValue().get();
    EXPECT_EQ(near->getGeometry().getValue().get(), mesh);
    EXPECT_NE(far->getGeometry().getValue().get(), mesh);
    EXPECT_NE(elsewhere->getGeometry().getValue().get(), mesh);
    EXPECT_EQ(_mesher->_made.load(), 3);
}

TEST_F(GeometryCaching, ACancelledWorkerHandsItsWorkToOneWaiter) {
    auto const [first, second, third] = threeAsksWhileShut();
    engine().cancelRequest(first);
    EXPECT_THROW(first->getGeometry(), PxEx::ExRequestCancelled);
    // One waiter took over; the other still waits, now for it.
    ASSERT_TRUE(eventually([&] { return _mesher->_entered.load() == 2 && blocked() == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(_mesher->_entered.load(), 2);
    EXPECT_EQ(blocked(), 1);
    _mesher->_open = true;
    SdMesh const* mesh = second->getGeometry().getValue().get();
    EXPECT_NE(mesh, nullptr);
    EXPECT_EQ(third->getGeometry().getValue().get(), mesh);
    EXPECT_EQ(_mesher->_made.load(), 1);
}

TEST_F(GeometryCaching, ACancelledWorkerWithNobodyWaitingLeavesNothingBehind) {
    _mesher->_open = false;
    Ask first = ask(0.5);
    ASSERT_TRUE(eventually([&] { return _mesher->_entered.load() == 1; }));
    EXPECT_EQ(counts().nbPending, 1);
    engine().cancelRequest(first);
    EXPECT_THROW(first->getGeometry(), PxEx::ExRequestCancelled);
    EXPECT_EQ(counts().nbPending, 0);
    _mesher->_open = true;
    EXPECT_NE(meshAt(0.5), nullptr);
    EXPECT_EQ(_mesher->_entered.load(), 2);
}

TEST_F(GeometryCaching, AFailureReachesEveryWaiterAndTheNextAskStartsAfresh) {
    _mesher->_failNext = true;
    auto const [first, second, third] = threeAsksWhileShut();
    _mesher->_open = true;
    try {
        first->getGeometry();
        FAIL() << "the worker's own failure goes up its request";
    } catch (ExBase const& e) {
        EXPECT_EQ(e.getReason(), "no mesh today");
    }
    EXPECT_THROW(second->getGeometry(), PxEx::ExRequestFailed);
    EXPECT_THROW(third->getGeometry(), PxEx::ExRequestFailed);
    EXPECT_EQ(counts().nbPending, 0);
    EXPECT_NE(meshAt(0.5), nullptr);
    EXPECT_EQ(_mesher->_made.load(), 1);
}

TEST_F(GeometryCaching, AMeshValidAtNoTimeIsRefused) {
    _mesher->_emptyInterval = true;
    try {
        meshAt(0.5);
        FAIL();
    } catch (ExBase const& e) {
        EXPECT_NE(e.getReason().find("valid at no time"), std::string::npos) << e.getReason();
    }
    EXPECT_EQ(counts().nbPending, 0);
    EXPECT_EQ(counts().nbMeshes, 0);
}

TEST_F(GeometryCaching, TheShortListKeepsTheMostRecentlyUsed) {
    PxGeometryCacheNode::setLruSize(2);
    SdMesh const* m0 = meshAt(0.5);
    meshAt(1.5);
    SdMesh const* m2 = meshAt(2.5);
    EXPECT_EQ(counts().nbMeshes, 2);
    EXPECT_EQ(meshAt(2.5), m2); // a hit, now the most recent
    EXPECT_EQ(_mesher->_made.load(), 3);
    // The oldest was evicted: a miss, and its stale end is forgotten.
    EXPECT_NE(meshAt(0.5), m0);
    EXPECT_EQ(_mesher->_made.load(), 4);
    EXPECT_EQ(counts().nbEnds, 3);
    EXPECT_EQ(meshAt(2.5), m2);
    meshAt(1.5);
    EXPECT_EQ(_mesher->_made.load(), 5);
    EXPECT_EQ(counts().nbMeshes, 2);
}

TEST_F(GeometryCaching, AHitNeedsTheTimeInsideTheValidity) {
    SdMesh const* mesh = meshAt(1.5); // valid over [1, 2)
    EXPECT_EQ(meshAt(1.0), mesh);
    EXPECT_EQ(meshAt(1.999), mesh);
    EXPECT_NE(meshAt(2.0), mesh);
    EXPECT_NE(meshAt(1.5, placedAt(3)), mesh);
    EXPECT_EQ(_mesher->_made.load(), 3);
    // A time that is not a number is never cached.
    double const nan = std::numeric_limits<double>::quiet_NaN();
    meshAt(nan);
    meshAt(nan);
    EXPECT_EQ(_mesher->_made.load(), 5);
    EXPECT_EQ(counts().nbMeshes, 3);
}

TEST_F(GeometryCaching, InvalidationDropsTheMeshesWhoseValidityEndsInside) {
    SdMesh const* mesh = meshAt(1.5); // valid over [1, 2)
    SdMesh const* later = meshAt(5.5);
    invalidate(PxValidityInterval(0, 1.5));
    EXPECT_EQ(meshAt(1.5), mesh);
    invalidate(PxValidityInterval(1.5, 2.0));
    EXPECT_NE(meshAt(1.5), mesh);
    EXPECT_EQ(meshAt(5.5), later);
    EXPECT_EQ(_mesher->_made.load(), 3);

    invalidate(PxValidityInterval::FULL);
    auto const c = counts();
    EXPECT_EQ(c.nbMeshes, 0);
    EXPECT_EQ(c.nbPlacements, 0);
    EXPECT_EQ(c.nbEnds, 0);
    EXPECT_NE(meshAt(5.5), later);

    // A new child invalidates over all time.
    meshAt(7.5);
    auto other = PxStrongHndl<Mesher>(new Mesher);
    PxNode::init(PxStrongHndl<PxNode>(other));
    PxMutationRequest::submit(
        new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(_cache), PxUPtr<PxNode const>(other)));
    engine().sync();
    EXPECT_EQ(counts().nbMeshes, 0);
    meshAt(7.5);
    EXPECT_EQ(other->_made.load(), 1);
}

TEST_F(GeometryCaching, AnAnimatedPlacementKeepsMemoryBounded) {
    PxGeometryCacheNode::setLruSize(2);
    for (int i = 0; i < 200; ++i)
        meshAt(0.5, placedAt(static_cast<float>(i)));
    auto const c = counts();
    EXPECT_EQ(c.nbMeshes, 2);
    EXPECT_LE(c.nbPlacements, 5);
    EXPECT_LE(c.nbEnds, 5);
    EXPECT_EQ(c.nbPending, 0);
    // The most recent ones are still hits.
    meshAt(0.5, placedAt(199));
    meshAt(0.5, placedAt(198));
    EXPECT_EQ(_mesher->_made.load(), 200);
}
