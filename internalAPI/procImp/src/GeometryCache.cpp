#include "GeometryCache.h"

#include "Assertions.h"
#include "PxEx.h"
#include "PxRequestMgr.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <unordered_set>

namespace Vn {

namespace {

// Stands at 1 until the engine starts and reads the environment.
std::atomic<int> s_lruLimit{1};

// Bounds beyond which an invalidation counts as reaching infinity.
constexpr double kFarPast = -15768000.0;
constexpr double kFarFuture = 15768000.0;

// Nothing is valid yet: high below low.
PxGeometryResult const kNothing(RCShdPtr<SdMesh const>(),
                                PxValidityInterval(PxValidityInterval::kPosInfinity,
                                                   PxValidityInterval::kNegInfinity));

} // namespace

// ---- entries ----

PreCacheEntry::PreCacheEntry(GeometryCache* cache, PxGeometryContext const& context)
    : _result(kNothing), _cache(cache), _context(context),
      _condVar(new LkCondVar("Geometry cache entry")) {}

PreCacheEntry::PreCacheEntry(PxGeometryResult const& result, PxGeometryContext const& context)
    : _result(result), _context(context) {}

void PreCacheEntry::commit(PxGeometryResult const& result) {
    VN_ASSERT(!_cache.isNull());
    VN_ASSERT(!isValid());
    _cache->commit(result, *this);
}

void PreCacheEntry::waitForChange(LkGuard& guard) {
    VN_ASSERT(!_condVar.isNull());
    // Woken for no reason, a thread goes back to sleep: only a change of the entry ends the wait.
    while (!isValid() && !_failed && !_retry)
        _condVar->wait(guard);
}

// ---- cache ----

void GeometryCache::setLruLimit(int n) noexcept {
    s_lruLimit.store(std::max(1, n), std::memory_order_relaxed);
}

int GeometryCache::getLruLimit() noexcept {
    return s_lruLimit.load(std::memory_order_relaxed);
}

bool GeometryCache::isCacheable(PxGeometryContext const& context) noexcept {
    if (std::isnan(context.getTime()))
        return false;
    float const* m = context.getPlacement().getData();
    return std::none_of(m, m + 16, [](float v) { return std::isnan(v); });
}

bool GeometryCache::areEqual(PxGeometryContext const& a, PxGeometryContext const& b) noexcept {
    return std::fabs(a.getTime() - b.getTime()) <= kTimeTolerance &&
           a.getPlacement() == b.getPlacement();
}

GeometryCache::Pending::iterator GeometryCache::findPending(PxGeometryContext const& context) {
    double const t = context.getTime();
    auto const end = _pending.upper_bound(t + kTimeTolerance);
    for (auto it = _pending.lower_bound(t - kTimeTolerance); it != end; ++it)
        if (areEqual(it->second->_context, context))
            return it;
    return _pending.end();
}

void GeometryCache::erasePending(PreCacheEntry const& entry) {
    double const t = entry._context.getTime();
    auto const end = _pending.upper_bound(t + kTimeTolerance);
    for (auto it = _pending.lower_bound(t - kTimeTolerance); it != end; ++it) {
        if (it->second.get() == &entry) {
            _pending.erase(it);
            return;
        }
    }
}

std::vector<GeometryCache::PlacementKey>::iterator
GeometryCache::findKey(GeAffineMatrix3<float> const& placement) {
    return std::find_if(_keys.begin(), _keys.end(),
                        [&](PlacementKey const& k) { return k.placement == placement; });
}

std::list<GeometryCache::LruNode>::iterator GeometryCache::findLru(std::int32_t id) {
    return std::find_if(_lru.begin(), _lru.end(), [&](LruNode const& n) { return n.id == id; });
}

RCShdPtr<PreCacheEntry> GeometryCache::lookUp(PxGeometryContext const& context) {
    double const t = context.getTime();
    std::optional<LkGuard> guard(std::in_place, _lock);
    RCShdPtr<PreCacheEntry> waitedOn;
    for (;;) {
        if (waitedOn) {
            --waitedOn->_nbWaiters;
            if (waitedOn->isValid())
                return waitedOn;
            if (waitedOn->_failed)
                throw PxEx::ExRequestFailed(__FILE__, __LINE__);
            // Given up: take it over, unless another thread was quicker.
        }
        auto const it = findPending(context);
        if (it == _pending.end())
            break;
        RCShdPtr<PreCacheEntry> entry = it->second;
        if (entry->_retry) {
            entry->_retry = false;
            return entry;
        }
        // A cancelled caller doesn't sleep, and isn't counted as waiting.
        PxRequestMgr::getInstance().checkCancelled();
        ++entry->_nbWaiters;
        {
            PxWorkerBlockingGuard blocked;
            entry->waitForChange(*guard);
            // Leaving the blocking guard may wait for a running slot: never with the lock held.
            guard.reset();
        }
        guard.emplace(_lock);
        waitedOn = std::move(entry);
    }

    auto const key = findKey(context.getPlacement());
    if (key != _keys.end()) {
        auto const end = key->ends.lower_bound(t);
        if (end != key->ends.end()) {
            auto const node = findLru(end->second);
            if (node == _lru.end()) {
                // The mesh was evicted: forget its end.
                key->ends.erase(end);
                --_nbEnds;
                if (key->ends.empty())
                    _keys.erase(key);
            } else if (node->result.getValidityInterval().contains(t)) {
                _lru.splice(_lru.begin(), _lru, node);
                return RCShdPtr<PreCacheEntry>(new PreCacheEntry(node->result, context));
            }
        }
    }

    RCShdPtr<PreCacheEntry> entry(new PreCacheEntry(this, context));
    _pending.emplace(t, entry);
    return entry;
}

void GeometryCache::commit(PxGeometryResult const& result, PreCacheEntry& entry) {
    LkGuard guard(_lock);
    entry._result = result;
    erasePending(entry);
    auto key = findKey(entry._context.getPlacement());
    if (key == _keys.end()) {
        _keys.push_back(PlacementKey{entry._context.getPlacement(), {}});
        key = std::prev(_keys.end());
    }
    if (_nextId == INT32_MAX) {
        // Ids are about to repeat: start afresh rather than let an old end name a new mesh.
        clear();
        _keys.push_back(PlacementKey{entry._context.getPlacement(), {}});
        key = std::prev(_keys.end());
        _nextId = 0;
    }
    std::int32_t const id = ++_nextId;
    auto const [end, added] = key->ends.emplace(result.getValidityInterval().getHigh(), id);
    // A mesh already held for this end keeps its place; an evicted one's end is reused.
    bool const store = added || findLru(end->second) == _lru.end();
    if (added)
        ++_nbEnds;
    if (store) {
        end->second = id;
        _lru.push_front(LruNode{id, result});
        if (_lru.size() > static_cast<std::size_t>(getLruLimit()))
            _lru.pop_back();
        if (_nbEnds > 2 * static_cast<std::size_t>(getLruLimit()))
            dropStaleEnds();
    }
    entry._condVar->broadcast();
}

void GeometryCache::dropStaleEnds() {
    std::unordered_set<std::int32_t> live;
    for (LruNode const& n : _lru)
        live.insert(n.id);
    for (PlacementKey& k : _keys)
        _nbEnds -= std::erase_if(k.ends, [&](auto const& e) { return !live.contains(e.second); });
    std::erase_if(_keys, [](PlacementKey const& k) { return k.ends.empty(); });
}

void GeometryCache::giveUp(PreCacheEntry& entry) noexcept {
    LkGuard guard(_lock);
    if (entry._nbWaiters == 0) {
        // Nobody to hand it to: the next caller starts afresh.
        erasePending(entry);
        return;
    }
    entry._retry = true;
    entry._condVar->signal();
}

void GeometryCache::fail(PreCacheEntry& entry) noexcept {
    LkGuard guard(_lock);
    entry._failed = true;
    erasePending(entry);
    entry._condVar->broadcast();
}

void GeometryCache::clear() {
    _keys.clear();
    _lru.clear();
    _nbEnds = 0;
}

void GeometryCache::invalidate(PxValidityInterval const& interval) {
    // Invalidations come in sequential requests, when nothing else runs; the lock costs nothing
    // then and keeps a stray caller safe.
    LkGuard guard(_lock);
    double const low = interval.getLow();
    double const high = interval.getHigh();
    if (std::isnan(low) || std::isnan(high) || low < kFarPast || high > kFarFuture) {
        clear();
        return;
    }
    if (high < low)
        return;
    std::unordered_set<std::int32_t> dropped;
    for (PlacementKey& k : _keys) {
        auto const first = k.ends.lower_bound(low);
        auto const last = k.ends.upper_bound(high);
        for (auto it = first; it != last; ++it)
            dropped.insert(it->second);
        _nbEnds -= static_cast<std::size_t>(std::distance(first, last));
        k.ends.erase(first, last);
    }
    std::erase_if(_keys, [](PlacementKey const& k) { return k.ends.empty(); });
    std::erase_if(_lru, [&](LruNode const& n) { return dropped.contains(n.id); });
}

GeometryCache::Counts GeometryCache::getCounts() {
    LkGuard guard(_lock);
    Counts c;
    c.nbPending = static_cast<int>(_pending.size());
    c.nbPlacements = static_cast<int>(_keys.size());
    c.nbEnds = static_cast<int>(_nbEnds);
    c.nbMeshes = static_cast<int>(_lru.size());
    return c;
}

} // namespace Vn
