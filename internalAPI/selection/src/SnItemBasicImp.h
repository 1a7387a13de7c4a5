#pragma once

// The member definitions of SnItemBasic and SnItemConvert, for the packages that instantiate
// them for their own payloads.

#include "LiString.h"
#include "RCExUtil.h"
#include "SnIsItem.h"
#include "SnItemBasic.h"
#include "SnTypeName.h"

#include <functional>
#include <ostream>
#include <string>
#include <typeinfo>

namespace Vn {

template <class I>
PrdPredicate<RCShdPtr<SnItem const>>* SnIsItem<I>::_pred = nullptr;
template <class I>
PrdPredicate<RCShdPtr<SnItem const>>* SnIsItemDataNonNull<I>::_pred = nullptr;

// How a payload compares, hashes and writes itself.
template <class T>
struct SnPayloadTraits;

template <>
struct SnPayloadTraits<std::string> {
    static constexpr bool isPointer = false;
    static bool equal(std::string const& a, std::string const& b) { return a == b; }
    static std::size_t hash(std::string const& v) { return std::hash<std::string>()(v); }
    static void dump(std::ostream& os, std::string const& v) { os << v; }
};

template <>
struct SnPayloadTraits<LiString> {
    static constexpr bool isPointer = false;
    static bool equal(LiString const& a, LiString const& b) { return a == b; }
    static std::size_t hash(LiString const& v) { return std::hash<LiString>()(v); }
    static void dump(std::ostream& os, LiString const& v) { os << v; }
};

inline void const* snRcBaseOf(RCBase<int> const* p) {
    return p;
}
inline void const* snRcBaseOf(RCBase<LkCounter<int>> const* p) {
    return p;
}

// Shared pointers compare by identity.
template <class U>
struct SnPayloadTraits<RCShdPtr<U>> {
    static constexpr bool isPointer = true;
    static bool equal(RCShdPtr<U> const& a, RCShdPtr<U> const& b) { return a.get() == b.get(); }
    static std::size_t hash(RCShdPtr<U> const& v) { return std::hash<void const*>()(v.get()); }
    static void dump(std::ostream& os, RCShdPtr<U> const& v) {
        U* p = v.get();
        os << "Pointee type = " << (p ? snTypeName(typeid(*p)) : std::string("null"))
           << ", T type = " << snTypeName(typeid(RCShdPtr<U>))
           << ", ref: " << (p ? p->getRefCount() : 0) << ", pointer:" << static_cast<void const*>(p)
           << ", RCBase pointer: " << (p ? snRcBaseOf(p) : nullptr);
    }
};

template <class T>
SnItemBasic<T>::SnItemBasic(T const& data, RCShdPtr<SnParts> const& parts)
    : SnItem(parts), _data(data), _hash(SnPayloadTraits<T>::hash(_data)) {}

template <class T>
SnItemBasic<T>::SnItemBasic(SnItemBasic const& o) : SnItem(o), _data(o._data), _hash(o._hash) {}

template <class T>
SnItemBasic<T>::~SnItemBasic() = default;

template <class T>
SnItem* SnItemBasic<T>::clone() const {
    return new SnItemBasic(*this);
}

template <class T>
bool SnItemBasic<T>::isEqualIgnoreParts(SnItem const& rhs) const {
    if (typeid(rhs) != typeid(*this))
        return false;
    return SnPayloadTraits<T>::equal(_data, static_cast<SnItemBasic const&>(rhs)._data);
}

template <class T>
void SnItemBasic<T>::dump(std::ostream& os) const {
    SnItem::dump(os);
    os << "Data:      ";
    SnPayloadTraits<T>::dump(os, _data);
    os << '\n';
}

// The payload alone: items of two types with one payload only share a hash, and hashing the
// type's name on every lookup cost more than those rare extra comparisons.
template <class T>
std::optional<std::size_t> SnItemBasic<T>::getIdentityHash() const {
    return _hash;
}

template <class T>
RCShdPtr<SnItemBasic<T>> SnItemConvert<T>::createItem(T const& value,
                                                      RCShdPtr<SnParts> const& parts) {
    return RCShdPtr<Item>(new Item(value, parts));
}

template <class T>
RCShdPtr<SnItemBasic<T>> SnItemConvert<T>::createItem(T const& value) {
    return RCShdPtr<Item>(new Item(value, RCShdPtr<SnParts>()));
}

template <class T>
T SnItemConvert<T>::get(RCShdPtr<SnItem const> const& item) {
    auto const* i = dynamic_cast<Item const*>(item.operator->());
    if (!i)
        RCExUtil::throwExCastFailed(typeid(*item).name(), typeid(Item).name());
    return i->get();
}

template <class T>
PrdPredicate<RCShdPtr<SnItem const>> SnItemConvert<T>::getPredicate() {
    if constexpr (SnPayloadTraits<T>::isPointer)
        return SnIsItemDataNonNull<Item>::getPredicate();
    else
        return SnIsItem<Item>::getPredicate();
}

} // namespace Vn
