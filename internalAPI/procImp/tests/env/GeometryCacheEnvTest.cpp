#include "../EngineTestSupport.h"

#include "PxGeometryCacheNode.h"

#include <cmath>
#include <cstdlib>

using namespace VnTest;
using namespace Vn;

namespace {

class Counting final : public PxGeometryProtocol {
public:
    Counting() : PxNode(PxNode::Init{"Counting"}) {}
    PxGeometryResult getGeometry(PxGeometryContext const& context) const override {
        ++_made;
        double const low = std::floor(context.getTime());
        return PxGeometryResult(RCShdPtr<SdMesh const>(new SdMesh),
                                PxValidityInterval(low, low + 1));
    }
    mutable std::atomic<int> _made{0};
};

} // namespace

// The run's environment sets VN_GEOMETRY_CACHE_LRU_SIZE and, in EXPECT_LRU, what must come of it.
TEST(GeometryCacheEnv, LruSizeFromVariable) {
    char const* expected = std::getenv("EXPECT_LRU");
    ASSERT_TRUE(expected) << "run through ctest, which sets the expectation";
    int const lru = std::atoi(expected);
    InInitMgr::getInstance().initialize();
    EXPECT_EQ(PxGeometryCacheNode::getLruSize(), lru);
    {
        auto const child = makeNode(new Counting);
        auto const cache = makeNode(new PxGeometryCacheNode(
            PxNode::Init{"cache"}, PxStrongHndl<PxGeometryProtocol const>(child)));
        auto const meshAt = [&](double t) {
            return submitted(new PxGeometryRequest(PxUPtr<PxGeometryProtocol const>(cache),
                                                   PxGeometryContext(t)))
                ->getGeometry()
                .getValue();
        };
        for (double t : {0.5, 1.5, 2.5})
            meshAt(t);
        EXPECT_EQ(cache->getCacheCounts().nbMeshes, std::min(lru, 3));
        // The oldest of three stays only when the list holds three.
        meshAt(0.5);
        EXPECT_EQ(child->_made.load(), lru < 3 ? 4 : 3);
        // And the newest always does.
        meshAt(0.75);
        EXPECT_EQ(child->_made.load(), lru < 3 ? 4 : 3);
    }
    engine().sync();
    InInitMgr::getInstance().finalize();
}
