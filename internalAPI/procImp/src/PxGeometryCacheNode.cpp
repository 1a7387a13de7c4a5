#include "PxGeometryCacheNode.h"

#include "Assertions.h"
#include "ExBase.h"
#include "GeometryCache.h"
#include "PxRequestMgr.h"

namespace Vn {

namespace {

// Holds the entry of one getGeometry. If the entry isn't finished when the scope ends, the
// worker on it was cancelled, and a waiter takes over, or it failed, and the waiters raise.
class PreCacheEntryGuard {
public:
    explicit PreCacheEntryGuard(RCShdPtr<PreCacheEntry> entry) : _entry(std::move(entry)) {
        VN_ASSERT(!_entry.isNull());
    }
    PreCacheEntryGuard(PreCacheEntryGuard const&) = delete;
    PreCacheEntryGuard& operator=(PreCacheEntryGuard const&) = delete;
    ~PreCacheEntryGuard() {
        if (_entry->isValid())
            return;
        GeometryCache* cache = _entry->getCache();
        if (PxRequestMgr::isInitialized() && PxRequestMgr::getInstance().isCancelled())
            cache->giveUp(*_entry);
        else
            cache->fail(*_entry);
    }

    // Hands what this thread made to the cache, and wakes the waiters.
    void commit(PxGeometryResult const& result) {
        VN_ASSERT(!_entry->isValid());
        _entry->commit(result);
    }

    PreCacheEntry& operator*() const { return *_entry; }
    PreCacheEntry* operator->() const { return _entry.get(); }

private:
    RCShdPtr<PreCacheEntry> _entry;
};

} // namespace

PxGeometryCacheNode::PxGeometryCacheNode(PxNode::Init const& init,
                                         PxStrongHndl<PxGeometryProtocol const> const& child)
    : PxNode(init), PxCollapsingPassThroughNode<PxGeometryProtocol>(init, child),
      _cache(new GeometryCache) {}

PxGeometryCacheNode::~PxGeometryCacheNode() = default;

void PxGeometryCacheNode::setLruSize(int n) noexcept {
    GeometryCache::setLruLimit(n);
}

int PxGeometryCacheNode::getLruSize() noexcept {
    return GeometryCache::getLruLimit();
}

PxGeometryResult PxGeometryCacheNode::getGeometry(PxGeometryContext const& context) const {
    if (!GeometryCache::isCacheable(context))
        return getChild()->getGeometry(context);
    PreCacheEntryGuard entry(_cache->lookUp(context));
    if (entry->isValid())
        return entry->getResult();
    PxGeometryResult result = getChild()->getGeometry(context);
    PxValidityInterval const& vi = result.getValidityInterval();
    // Kept by the end of its validity, a mesh valid at no time could never be found again.
    if (!(vi.getLow() <= vi.getHigh()))
        throw MsgException<ExBase>(__FILE__, __LINE__,
                                   std::string("The geometry of node \"") +
                                       getChild()->getTypeName() +
                                       "\" is valid at no time: its interval is empty");
    entry.commit(result);
    return result;
}

void PxGeometryCacheNode::reinitialize(PxValidityInterval const& interval) {
    _cache->invalidate(interval);
}

PxGeometryCacheNode::CacheCounts PxGeometryCacheNode::getCacheCounts() const {
    return _cache->getCounts();
}

} // namespace Vn
