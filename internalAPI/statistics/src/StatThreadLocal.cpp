#include "StatThreadLocal.h"
#include "Assertions.h"
#include "StatMemPool.h"

namespace Vn {

StatThreadLocal::~StatThreadLocal() {
    StatData* data = _head;
    while (data) {
        StatData* next = static_cast<StatData*>(data->getNext());
        delete data;
        data = next;
    }
}

OPtrRet<StatThreadLocal> StatThreadLocal::create() {
    return OPtrRet<StatThreadLocal>(new StatThreadLocal);
}

void* StatThreadLocal::operator new(std::size_t size) {
    return StatMemPool::alloc(size);
}

void StatThreadLocal::operator delete(void* block, std::size_t size) noexcept {
    StatMemPool::free(block, size);
}

OPtrRet<StatData> StatThreadLocal::popStat() noexcept {
    StatData* data = _head;
    if (!data)
        return nullptr;
    _head = static_cast<StatData*>(data->getNext());
    if (!_head)
        _tail = nullptr;
    data->setNext(nullptr);
    return OPtrRet<StatData>(data);
}

UPtr<StatContainerBase> StatThreadLocal::getContainer(StatResourceType type) {
    if (!_head) [[unlikely]]
        _head = _tail = StatData::create().release();
    return _head->getContainer(type);
}

void StatThreadLocal::appendStats(OPtr<StatThreadLocal> other) {
    StatThreadLocal* source = other.get();
    if (source == this) [[unlikely]]
        other.release(); // owned twice: leave it to its other owner
    VN_ASSERT(source != this);
    if (!source || !source->_head)
        return;
    if (_tail)
        _tail->setNext(source->_head);
    else
        _head = source->_head;
    _tail = source->_tail;
    source->_head = source->_tail = nullptr;
}

} // namespace Vn
