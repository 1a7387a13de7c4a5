#pragma once

#include "PxImageProtocol.h"
#include "PxPassThroughNode.h"

#include <atomic>
#include <memory>

namespace Vn {

// Its child's tiles, each kept for the next to ask for it. A node that reads its source with a
// margin asks each source tile for up to nine of its own tiles, and the graph below would make
// it that many times. Up to 64 tiles are kept, by position, until another tile takes the place
// or an invalidation drops them all.
class VN_EXPORT PiKeptTilesNode final : public PxPassThroughNode<PxImageProtocol> {
public:
    PiKeptTilesNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& child);
    ~PiKeptTilesNode() override;

    PxImageResult getImageResult(PxImageContext const& context) const override;
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;

private:
    struct Slots;
    std::unique_ptr<Slots> _slots;
    mutable std::atomic<unsigned> _generation{0};
};

} // namespace Vn
