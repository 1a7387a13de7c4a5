// A multi-tile request's handler reads the results on a worker while the request's owner reads
// them on its own thread.

#include "ImageTestGraph.h"

#include "RCCbHandler.h"

using namespace VnTest;
using namespace Vn;

using ImageRequestStress = EngineTest;

TEST_F(ImageRequestStress, AHandlerAndTheOwnerReadTheResultsAtOnce) {
    auto const source = colorSource();
    using Handler = PxImageMultiTileRequest::Handler;
    for (int i = 0; i < 300; ++i) {
        std::atomic<std::size_t> seenByHandler{0};
        auto handler = makeRCCbHandler<PxImageMultiTileRequest const>(
            [&](PxImageMultiTileRequest const& r) { seenByHandler = r.getResults()->size(); });
        PxRequestPtr<PxImageMultiTileRequest> q(
            new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(source), 0, PxTimeInfo(0.0),
                                        0, 0, RCWeakPtr<Handler>(handler)));
        engine().executeRequest(q.get(), false);
        std::size_t const seen = q->getResults()->size();
        ASSERT_GT(seen, 0u);
        ASSERT_TRUE(eventually([&] { return seenByHandler.load() == seen; }));
    }
}
