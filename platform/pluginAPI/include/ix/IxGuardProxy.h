#pragma once

#include "VnExport.h"

namespace Vn {

// Something that holds read guards on tiles for someone else and can be told to let them go,
// so that the tiles' memory may be paged out between passes.
class VN_EXPORT IxGuardProxy {
public:
    virtual ~IxGuardProxy();
    virtual void releaseGuard() const = 0;

protected:
    IxGuardProxy() noexcept = default;
    IxGuardProxy(IxGuardProxy const&) = default;
    IxGuardProxy& operator=(IxGuardProxy const&) = default;
};

} // namespace Vn
