#pragma once

#include "VnExport.h"

namespace Vn {

// The id of a registered statistic kind: its index in StatResourceRegistry. Only the registry
// makes valid ones; a default one is invalid.
class VN_EXPORT StatResourceType {
public:
    StatResourceType() noexcept = default;

    int getId() const noexcept { return _id; }
    bool isValid() const noexcept { return _id != -1; }
    bool operator==(StatResourceType const& o) const noexcept { return _id == o._id; }
    bool operator!=(StatResourceType const& o) const noexcept { return _id != o._id; }

private:
    friend class StatResourceRegistry;
    explicit StatResourceType(int id) noexcept : _id(id) {}
    void setTypeId(int id) noexcept { _id = id; }

    int _id = -1;
};

} // namespace Vn
