#pragma once

#include "OPtr.h"
#include "StatContainerBase.h"
#include "VnExport.h"

namespace Vn {

// Makes the container that holds the samples of one statistic kind.
class VN_EXPORT StatContainerFactory {
public:
    StatContainerFactory() noexcept = default;
    StatContainerFactory(StatContainerFactory const&) = delete;
    StatContainerFactory& operator=(StatContainerFactory const&) = delete;
    virtual ~StatContainerFactory();

    virtual OPtrRet<StatContainerBase> createContainer() const = 0;
};

} // namespace Vn
