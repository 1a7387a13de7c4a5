#pragma once

// Sets and maps keyed by an object's address, held in one array. A clone or an archive puts
// every node and socket it walks in one; node-based hash tables then spend their time in the
// allocator and in cache misses, and those grew faster than the graph.

#include "Assertions.h"
#include "PiGraphObject.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

namespace Vn {

template <class Key, class Value>
class HoAddressMap {
    static_assert(std::is_pointer_v<Key>);

public:
    explicit HoAddressMap(std::size_t expected = 0) { reserve(expected); }

    // Room for `n` keys without growing.
    void reserve(std::size_t n) {
        std::size_t cap = 16;
        while (cap < 2 * n)
            cap *= 2;
        if (cap > _slots.size())
            rehash(cap);
    }

    // The value of `key`, made from `value` if the key is new; `second` tells whether it was.
    std::pair<Value*, bool> insert(Key key, Value value = Value()) {
        VN_ASSERT(key != nullptr);
        if (2 * (_count + 1) > _slots.size())
            rehash(_slots.size() * 2);
        Slot& s = slotOf(key);
        if (s.key == key)
            return {&s.value, false};
        s.key = key;
        s.value = std::move(value);
        ++_count;
        return {&s.value, true};
    }

    Value* find(Key key) {
        if (_slots.empty() || !key)
            return nullptr;
        Slot& s = slotOf(key);
        return s.key == key ? &s.value : nullptr;
    }
    Value const* find(Key key) const { return const_cast<HoAddressMap*>(this)->find(key); }
    bool contains(Key key) const { return find(key) != nullptr; }
    std::size_t size() const noexcept { return _count; }

private:
    struct Slot {
        Key key = nullptr;
        [[no_unique_address]] Value value = Value();
    };

    // The slot holding `key`, or the empty slot where it goes: linear probing from a
    // multiplicative hash of the address, whose low bits are alignment.
    Slot& slotOf(Key key) {
        std::size_t const mask = _slots.size() - 1;
        auto const bits = reinterpret_cast<std::uintptr_t>(key);
        std::size_t i = static_cast<std::size_t>((bits >> 4) * 0x9E3779B97F4A7C15ull) >> _shift;
        while (_slots[i].key && _slots[i].key != key)
            i = (i + 1) & mask;
        return _slots[i];
    }

    void rehash(std::size_t cap) {
        std::vector<Slot> old(cap);
        old.swap(_slots);
        _shift = 64;
        for (std::size_t c = cap; c > 1; c /= 2)
            --_shift;
        for (Slot& s : old)
            if (s.key)
                slotOf(s.key) = std::move(s);
    }

    std::vector<Slot> _slots;
    std::size_t _count = 0;
    int _shift = 64;
};

// A set of addresses.
template <class Key>
class HoAddressSet {
public:
    explicit HoAddressSet(std::size_t expected = 0) : _map(expected) {}
    template <class It>
    HoAddressSet(It first, It last) : _map(static_cast<std::size_t>(last - first)) {
        for (; first != last; ++first)
            insert(*first);
    }
    // Whether `key` was new.
    bool insert(Key key) { return _map.insert(key).second; }
    bool contains(Key key) const { return _map.contains(key); }
    std::size_t size() const noexcept { return _map.size(); }

private:
    struct Empty {};
    HoAddressMap<Key, Empty> _map;
};

// Positions of graph objects in a list, found by id. Objects made together have neighbouring
// ids, so where the ids span not much more than the list, a flat array over the span holds the
// positions, and a walk of the objects in the order they were made walks it in order; other
// lists take a table keyed by address.
class HoIdIndex {
public:
    // The first position of each object; a later repeat keeps the first.
    template <class T>
    explicit HoIdIndex(std::vector<T*> const& objects) : HoIdIndex(objects, idsOf(objects)) {}

    // `ids` are the objects' ids, read by the caller on its own walk: a list of cold objects
    // costs a miss per object per walk.
    template <class T>
    HoIdIndex(std::vector<T*> const& objects, std::vector<int> const& ids) {
        VN_ASSERT(ids.size() == objects.size());
        if (objects.empty())
            return;
        auto const [lo, hi] = std::minmax_element(ids.begin(), ids.end());
        std::size_t const span = static_cast<std::size_t>(static_cast<long long>(*hi) - *lo) + 1;
        if (span <= 8 * objects.size() + 64) {
            _first = *lo;
            _flat.assign(span, -1);
            for (std::size_t i = 0; i < objects.size(); ++i) {
                int& slot = _flat[static_cast<std::size_t>(ids[i] - _first)];
                if (slot < 0)
                    slot = static_cast<int>(i);
            }
        } else {
            _table.reserve(objects.size());
            for (std::size_t i = 0; i < objects.size(); ++i)
                _table.insert(objects[i], static_cast<int>(i));
        }
    }

    // The position of `o`, or -1.
    int find(PiGraphObject const* o) const { return o ? find(o, o->getId()) : -1; }
    // The same, where the caller knows the id.
    int find(PiGraphObject const* o, int id) const {
        if (!_flat.empty()) {
            long long const i = static_cast<long long>(id) - _first;
            return i >= 0 && i < static_cast<long long>(_flat.size())
                       ? _flat[static_cast<std::size_t>(i)]
                       : -1;
        }
        int const* p = _table.find(o);
        return p ? *p : -1;
    }
    bool contains(PiGraphObject const* o) const { return find(o) >= 0; }

private:
    template <class T>
    static std::vector<int> idsOf(std::vector<T*> const& objects) {
        std::vector<int> ids(objects.size());
        for (std::size_t i = 0; i < objects.size(); ++i)
            ids[i] = objects[i]->getId();
        return ids;
    }

    int _first = 0;
    std::vector<int> _flat;
    HoAddressMap<PiGraphObject const*, int> _table;
};

} // namespace Vn
