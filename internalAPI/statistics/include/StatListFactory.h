#pragma once

#include "OPtr.h"
#include "StatContainerFactory.h"
#include "StatList.h"

namespace Vn {

// Makes a StatList<T> for each StatData that records the kind.
template <class T>
class StatListFactory : public StatContainerFactory {
public:
    static OPtrRet<StatContainerFactory> create() {
        return OPtrRet<StatContainerFactory>(new StatListFactory);
    }
    OPtrRet<StatContainerBase> createContainer() const override {
        return OPtrRet<StatContainerBase>(new StatList<T>);
    }

private:
    StatListFactory() noexcept = default;
};

} // namespace Vn
