#include "IxGuardBase.h"
#include "Assertions.h"
#include "IxWriteGuardProxy.h"

namespace Vn {

IxReadGuard::IxReadGuard(IxTile const& tile) : IxGuardBase(tile) {
    acquire();
}

IxReadGuard::IxReadGuard(IxReadGuard const& o) : IxGuardBase(o._tile) {
    acquire();
}

IxReadGuard& IxReadGuard::operator=(IxReadGuard const& o) {
    if (this != &o) {
        reset();
        _tile = o._tile;
        acquire();
    }
    return *this;
}

IxReadGuard::~IxReadGuard() {
    reset();
}

void IxReadGuard::acquire() {
    if (!getMemory())
        return;
    IxMemory const& memory = *getMemory();
    try {
        setMemoryStart(memory.acquire(*this));
    } catch (...) {
        _tile = IxTile();
        throw;
    }
}

void IxReadGuard::reset() noexcept {
    if (_held) {
        static_cast<IxMemory const&>(*getMemory()).release(*this);
        _held = false;
        _first = nullptr;
    }
    _tile = IxTile();
}

IxWriteGuard::IxWriteGuard(IxTile const& tile) : IxGuardBase(tile) {
    acquire();
}

IxWriteGuard::IxWriteGuard(IxWriteGuard const& o) : IxGuardBase(o._tile) {
    acquire();
}

IxWriteGuard& IxWriteGuard::operator=(IxWriteGuard const& o) {
    if (this != &o) {
        reset();
        _tile = o._tile;
        acquire();
    }
    return *this;
}

IxWriteGuard::~IxWriteGuard() {
    reset();
}

void IxWriteGuard::acquire() {
    if (!getMemory())
        return;
    try {
        setMemoryStart(getMemory()->acquire(*this));
    } catch (...) {
        _tile = IxTile();
        throw;
    }
}

void IxWriteGuard::reset() noexcept {
    if (_held) {
        getMemory()->release(*this);
        _held = false;
        _first = nullptr;
    }
    _tile = IxTile();
}

void IxWriteGuardProxy::set(IxTile const& tile) {
    _guard = IxWriteGuard(tile);
}

void IxWriteGuardProxy::releaseGuard() const {
    _guard.reset();
}

void IxWriteGuardProxy::reset() noexcept {
    _guard.reset();
}

IxWriteGuard const& IxWriteGuardProxy::operator*() const {
    VN_ASSERT(isSet());
    return _guard;
}

} // namespace Vn
