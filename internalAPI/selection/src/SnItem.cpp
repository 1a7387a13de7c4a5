#include "SnItem.h"

#include "SnMemPool.h"
#include "SnTypeName.h"

#include <ostream>
#include <typeinfo>

namespace Vn {

SnItem::Snapshot::Snapshot(RCShdPtr<SnItem const> const& item) : _item(new Held{item}) {}

SnItem::Snapshot::~Snapshot() = default;

void* SnItem::Snapshot::operator new(std::size_t size) {
    return SnMemPool::alloc(size);
}

void SnItem::Snapshot::operator delete(void* block, std::size_t size) noexcept {
    SnMemPool::free(block, size);
}

void* SnItem::Snapshot::Held::operator new(std::size_t size) {
    return SnMemPool::alloc(size);
}

void SnItem::Snapshot::Held::operator delete(void* block, std::size_t size) noexcept {
    SnMemPool::free(block, size);
}

void* SnItem::operator new(std::size_t size) {
    return SnMemPool::alloc(size);
}

void SnItem::operator delete(void* block, std::size_t size) noexcept {
    SnMemPool::free(block, size);
}

RCShdPtr<SnItem::Snapshot> SnItem::Snapshot::create(RCShdPtr<SnItem const> const& item) {
    return RCShdPtr<Snapshot>(new Snapshot(item));
}

RCShdPtr<SnItem> SnItem::Snapshot::restore() const {
    return _item->item->restore();
}

SnItem::SnItem(RCShdPtr<SnParts> const& parts) : _parts(parts) {}

SnItem::SnItem(SnItem const& o) : RCBase<int>(o) {
    if (o._parts)
        _parts = RCShdPtr<SnParts>(o._parts->clone());
}

SnItem::~SnItem() = default;

void SnItem::dump(std::ostream& os) const {
    os << "Item type: " << snTypeName(typeid(*this)) << '\n';
    os << "Parts:     ";
    if (_parts) {
        os << "( ";
        _parts->dump(os);
        os << ")\n";
    } else {
        os << "(none)\n";
    }
}

RCShdPtr<SnItem::Snapshot> SnItem::snapshot() const {
    return Snapshot::create(RCShdPtr<SnItem const>(clone()));
}

RCShdPtr<SnItem> SnItem::restore() const {
    return RCShdPtr<SnItem>(clone());
}

std::optional<std::size_t> SnItem::getIdentityHash() const {
    return std::nullopt;
}

bool SnItem::isEqual(SnItem const& rhs) const {
    if (typeid(*this) != typeid(rhs) || !isEqualIgnoreParts(rhs))
        return false;
    if (!_parts)
        return !rhs._parts;
    return _parts->isEqual(rhs._parts);
}

bool SnItem::hasEqualParts(SnItem const& rhs) const {
    if (!_parts)
        return !rhs._parts;
    return _parts->isEqual(rhs._parts);
}

bool SnItem::contains(SnItem const& rhs) const {
    if (!isEqualIgnoreParts(rhs))
        return false;
    if (!_parts)
        return !rhs._parts;
    return _parts->contains(rhs._parts);
}

bool SnItem::unionWith(SnItem const& rhs) {
    if (!isEqualIgnoreParts(rhs) || !rhs._parts)
        return false;
    if (!_parts) {
        _parts = RCShdPtr<SnParts>(rhs._parts->clone());
        return true;
    }
    return _parts->unionWith(rhs._parts);
}

bool SnItem::differenceWith(SnItem const& rhs) {
    if (!isEqualIgnoreParts(rhs) || !rhs._parts || !_parts)
        return false;
    bool const changed = _parts->differenceWith(rhs._parts);
    if (_parts->isEmpty())
        _parts.reset();
    return changed;
}

bool SnItem::xorWith(SnItem const& rhs) {
    if (!isEqualIgnoreParts(rhs) || !rhs._parts)
        return false;
    if (!_parts) {
        _parts = RCShdPtr<SnParts>(rhs._parts->clone());
        return true;
    }
    bool const changed = _parts->xorWith(rhs._parts);
    if (_parts->isEmpty())
        _parts.reset();
    return changed;
}

std::ostream& operator<<(std::ostream& os, SnItem const& item) {
    item.dump(os);
    return os;
}

} // namespace Vn
