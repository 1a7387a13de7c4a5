#pragma once

#include "IxGuardBase.h"
#include "VnExport.h"

namespace Vn {

// A write guard that is opened later, from a tile.
class VN_EXPORT IxWriteGuardProxy {
public:
    IxWriteGuardProxy() noexcept = default;
    IxWriteGuardProxy(IxWriteGuardProxy const&) = delete;
    IxWriteGuardProxy& operator=(IxWriteGuardProxy const&) = delete;

    void set(IxTile const& tile);
    void reset() noexcept;
    bool isSet() const noexcept { return _guard.holdsMemory(); }

    // The guard; the proxy must be set.
    IxWriteGuard const& operator*() const;
    IxWriteGuard const* operator->() const { return &**this; }

private:
    IxWriteGuard _guard;
};

} // namespace Vn
