#pragma once

#include "GeAffineMatrix.h"
#include "LkCondVar.h"
#include "LkLock.h"
#include "OPtr.h"
#include "PxGeometryCacheNode.h"
#include "PxGeometryProtocol.h"
#include "RCBase.h"
#include "UPtr.h"

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <vector>

namespace Vn {

class GeometryCache;

// One request for a mesh as the cache sees it: the one worker that makes it, or a finished
// mesh handed out from the cache.
class PreCacheEntry : public RCBase<LkCounter<int>> {
public:
    // An entry to work on, waited for by the others that ask for an equal context.
    PreCacheEntry(GeometryCache* cache, PxGeometryContext const& context);
    // A hit: the mesh is there already.
    PreCacheEntry(PxGeometryResult const& result, PxGeometryContext const& context);

    bool isValid() const noexcept { return !_result.getValidityInterval().isEmpty(); }
    PxGeometryResult const& getResult() const noexcept { return _result; }
    PxGeometryContext const& getContext() const noexcept { return _context; }
    // Null in a hit.
    GeometryCache* getCache() const noexcept { return _cache.get(); }
    // Stores what the worker made and hands it to the cache.
    void commit(PxGeometryResult const& result);

private:
    friend class GeometryCache;
    // Sleeps until the entry is finished, failed or given up; under the cache's lock.
    void waitForChange(LkGuard& guard);

    PxGeometryResult _result;
    UPtr<GeometryCache> _cache;
    PxGeometryContext _context;
    OPtr<LkCondVar> _condVar;
    bool _failed = false;
    bool _retry = false;
    // Threads that sleep on this entry or have woken and not yet looked again.
    int _nbWaiters = 0;
};

// Meshes by time and placement: the ones being made, and a short list of finished ones, most
// recently used first.
class GeometryCache {
public:
    using Counts = PxGeometryCacheNode::CacheCounts;
    // Contexts whose times are this close, with equal placements, wait for one another.
    static constexpr double kTimeTolerance = 6e-6;

    GeometryCache() = default;
    GeometryCache(GeometryCache const&) = delete;
    GeometryCache& operator=(GeometryCache const&) = delete;

    static void setLruLimit(int n) noexcept;
    static int getLruLimit() noexcept;
    // A context with a time or placement that is not a number can't be compared: it is never
    // cached.
    static bool isCacheable(PxGeometryContext const& context) noexcept;
    static bool areEqual(PxGeometryContext const& a, PxGeometryContext const& b) noexcept;

    // A valid entry (a hit, or one another worker finished), or one this thread must work on.
    // Raises PxEx::ExRequestFailed when the worker it waited for failed, and
    // PxEx::ExRequestCancelled when the caller's request is cancelled before it sleeps.
    RCShdPtr<PreCacheEntry> lookUp(PxGeometryContext const& context);
    void commit(PxGeometryResult const& result, PreCacheEntry& entry);
    // The worker on the entry was cancelled: a waiter takes over.
    void giveUp(PreCacheEntry& entry) noexcept;
    // The worker on the entry failed: its waiters raise.
    void fail(PreCacheEntry& entry) noexcept;
    // Drops the meshes whose validity ends inside the interval; an interval reaching towards
    // either infinity drops them all.
    void invalidate(PxValidityInterval const& interval);
    Counts getCounts();

private:
    struct PlacementKey {
        GeAffineMatrix3<float> placement;
        // The high end of a mesh's validity to the mesh's id.
        std::map<double, std::int32_t> ends;
    };
    struct LruNode {
        std::int32_t id;
        PxGeometryResult result;
    };
    using Pending = std::multimap<double, RCShdPtr<PreCacheEntry>>;

    Pending::iterator findPending(PxGeometryContext const& context);
    void erasePending(PreCacheEntry const& entry);
    std::vector<PlacementKey>::iterator findKey(GeAffineMatrix3<float> const& placement);
    std::list<LruNode>::iterator findLru(std::int32_t id);
    void dropStaleEnds();
    void clear();

    LkLock _lock{"Geometry cache lock"};
    Pending _pending;
    std::vector<PlacementKey> _keys;
    std::int32_t _nextId = 0;
    std::list<LruNode> _lru;
    // Entries of all `ends` maps together.
    std::size_t _nbEnds = 0;
};

} // namespace Vn
