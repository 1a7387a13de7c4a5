#include "PiKeptTilesNode.h"
#include "PiShareSlot.h"

#include <array>

namespace Vn {

// By tile position: the tiles that neighbours share, and that workers make at the same time,
// fall in different slots.
struct PiKeptTilesNode::Slots {
    static constexpr int kSide = 8;
    std::array<PiShareSlot<PxImageResult>, kSide * kSide> tiles;
    PiShareSlot<PxImageResult>& at(GePoint<int> const& t) {
        return tiles[static_cast<std::size_t>((t.x & (kSide - 1)) + kSide * (t.y & (kSide - 1)))];
    }
};

PiKeptTilesNode::PiKeptTilesNode(PxNode::Init const& init,
                                 PxStrongHndl<PxImageProtocol const> const& child)
    : PxNode(init), PxPassThroughNode<PxImageProtocol>(init, child),
      _slots(std::make_unique<Slots>()) {}

PiKeptTilesNode::~PiKeptTilesNode() = default;

PxImageResult PiKeptTilesNode::getImageResult(PxImageContext const& context) const {
    if (context.isOutside())
        return getChild()->getImageResult(context);
    // The generation is read before the child is asked: a tile made across an invalidation is
    // kept under the old one, where nobody finds it.
    PiShareKey const key{context.getTime(), context.getScale(), context.getStream(),
                         context.getTile(), _generation.load(std::memory_order_acquire)};
    PiShareSlot<PxImageResult>& slot = _slots->at(context.getTile());
    if (std::optional<PxImageResult> kept = slot.get(key, false))
        return std::move(*kept);
    PxImageResult result = getChild()->getImageResult(context);
    slot.put(key, result);
    return result;
}

void PiKeptTilesNode::invalidateAndReinitialize(PxValidityInterval const& interval,
                                                PxUPtr<PxNode const> const& from, int stream) {
    _generation.fetch_add(1, std::memory_order_acq_rel);
    for (auto& s : _slots->tiles)
        s.drop();
    PxPassThroughNode<PxImageProtocol>::invalidateAndReinitialize(interval, from, stream);
}

} // namespace Vn
