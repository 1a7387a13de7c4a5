#pragma once

#include "OPtr.h"
#include "PxGeometryProtocol.h"
#include "PxPassThroughNode.h"

namespace Vn {

class GeometryCache;

// Stands in front of the node that makes a mesh, its child, so that a mesh is made once rather
// than once per worker that asks. Meshes are kept by time and placement: a short list of
// finished ones, most recently used first, and the ones being made, for which other workers
// asking for the same wait instead of making them again.
class VN_EXPORT PxGeometryCacheNode final : public PxCollapsingPassThroughNode<PxGeometryProtocol> {
public:
    struct CacheCounts {
        // Meshes being made.
        int nbPending = 0;
        // Placements with a remembered mesh, and remembered validity ends over all of them.
        int nbPlacements = 0;
        int nbEnds = 0;
        // Finished meshes held.
        int nbMeshes = 0;
    };

    PxGeometryCacheNode(PxNode::Init const& init,
                        PxStrongHndl<PxGeometryProtocol const> const& child);
    ~PxGeometryCacheNode() override;

    PxGeometryResult getGeometry(PxGeometryContext const& context) const override;

    // How many finished meshes a node keeps; below 1 counts as 1. Set from
    // VN_GEOMETRY_CACHE_LRU_SIZE when the engine starts.
    static void setLruSize(int n) noexcept;
    static int getLruSize() noexcept;

    CacheCounts getCacheCounts() const;

protected:
    void reinitialize(PxValidityInterval const& interval) override;

private:
    OPtr<GeometryCache> _cache;
};

} // namespace Vn
