#pragma once

#include "RCBase.h"
#include "StatContainerBase.h"
#include "StatEx.h"
#include "StatList.h"
#include "StatMemPool.h"
#include "UPtr.h"

#include <cstddef>

namespace Vn {

// Base of the state behind a value class. Its count is not atomic: a value and its samples
// belong to one thread until they are handed over with the store that holds them.
class StatValueImp : public RCBase<int> {
public:
    static void* operator new(std::size_t size) { return StatMemPool::alloc(size); }
    static void operator delete(void* block, std::size_t size) noexcept {
        StatMemPool::free(block, size);
    }
    virtual StatValueImp* clone() const = 0;
};

// The state of a handle, ready to change: made on first use, and cloned when samples or other
// handles share it, so that they keep what they saw.
template <class Imp>
Imp& statWritable(RCShdPtr<Imp>& imp) {
    if (!imp)
        imp = RCShdPtr<Imp>(new Imp);
    else if (imp->getRefCount() != 1)
        imp = RCShdPtr<Imp>(static_cast<Imp*>(imp->clone()));
    return *imp.get();
}

// Appends a sample to the container of its kind, which must hold samples of T.
template <class T>
void statRecord(UPtr<StatContainerBase> container, T const& value) {
    auto* list = dynamic_cast<StatList<T>*>(container.get());
    if (!list)
        throw StatExInvalid(__FILE__, __LINE__);
    list->push_back(value);
}

} // namespace Vn
