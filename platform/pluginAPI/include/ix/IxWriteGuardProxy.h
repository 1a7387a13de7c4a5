#pragma once

#include "IxGuardBase.h"
#include "IxGuardProxy.h"
#include "VnExport.h"

namespace Vn {

// A write guard that is opened later, from a tile. Told to let its guard go, it lets the tile's
// memory go until it is set again.
class VN_EXPORT IxWriteGuardProxy : public IxGuardProxy {
public:
    IxWriteGuardProxy() noexcept = default;
    IxWriteGuardProxy(IxWriteGuardProxy const&) = delete;
    IxWriteGuardProxy& operator=(IxWriteGuardProxy const&) = delete;

    void set(IxTile const& tile);
    void reset() noexcept;
    void releaseGuard() const override;
    bool isSet() const noexcept { return _guard.holdsMemory(); }

    // The guard; the proxy must be set.
    IxWriteGuard const& operator*() const;
    IxWriteGuard const* operator->() const { return &**this; }

private:
    mutable IxWriteGuard _guard;
};

} // namespace Vn
