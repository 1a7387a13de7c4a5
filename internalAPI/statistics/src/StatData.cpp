#include "StatData.h"
#include "StatContainerFactory.h"
#include "StatEx.h"
#include "StatMemPool.h"
#include "StatResourceRegistry.h"

namespace Vn {

StatData::StatData()
    : _containers(static_cast<std::size_t>(StatResourceRegistry::getNbResources()), nullptr) {}

StatData::~StatData() {
    for (StatContainerBase* c : _containers)
        delete c;
}

OPtrRet<StatData> StatData::create() {
    return OPtrRet<StatData>(new StatData);
}

void* StatData::operator new(std::size_t size) {
    return StatMemPool::alloc(size);
}

void StatData::operator delete(void* block, std::size_t size) noexcept {
    StatMemPool::free(block, size);
}

UPtr<StatContainerBase> StatData::getContainer(StatResourceType type) {
    int id = type.getId();
    if (id < 0 || id >= getNbSlots()) [[unlikely]]
        throw StatExInvalid(__FILE__, __LINE__);
    StatContainerBase*& slot = _containers[static_cast<std::size_t>(id)];
    if (!slot) [[unlikely]]
        slot = StatResourceRegistry::getContainerFactory(type)->createContainer().release();
    return slot;
}

UPtr<StatContainerBase const> StatData::getContainerConst(StatResourceType type) const {
    int id = type.getId();
    if (id < 0 || id >= getNbSlots())
        return nullptr;
    return _containers[static_cast<std::size_t>(id)];
}

} // namespace Vn
