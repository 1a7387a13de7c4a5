#pragma once

// A list that holds its first few items in place. Most nodes have one or two sockets of each
// kind and one stored value, and most outputs feed one input: their lists then cost no
// allocation of their own, and a walk over a graph finds them in the node's own memory.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace Vn {

template <class T, std::size_t N>
class HoSmallList {
    static_assert(N > 0);
    static_assert(std::is_nothrow_move_constructible_v<T>);

public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = T const*;

    HoSmallList() noexcept = default;
    // The items point back at their holder: the list stays where it was made.
    HoSmallList(HoSmallList const&) = delete;
    HoSmallList& operator=(HoSmallList const&) = delete;
    ~HoSmallList() {
        clear();
        if (!inPlace())
            ::operator delete(_data);
    }

    std::size_t size() const noexcept { return _size; }
    bool empty() const noexcept { return _size == 0; }
    T* begin() noexcept { return _data; }
    T* end() noexcept { return _data + _size; }
    T const* begin() const noexcept { return _data; }
    T const* end() const noexcept { return _data + _size; }
    T& operator[](std::size_t i) noexcept { return _data[i]; }
    T const& operator[](std::size_t i) const noexcept { return _data[i]; }
    T& front() noexcept { return _data[0]; }
    T const& front() const noexcept { return _data[0]; }
    T& back() noexcept { return _data[_size - 1]; }
    T const& back() const noexcept { return _data[_size - 1]; }

    void reserve(std::size_t n) {
        if (n > _capacity)
            relocate(n);
    }
    void push_back(T item) {
        if (_size == _capacity)
            relocate(2 * _capacity);
        new (_data + _size) T(std::move(item));
        ++_size;
    }
    T* insert(T const* at, T item) {
        std::size_t const i = static_cast<std::size_t>(at - _data);
        push_back(std::move(item));
        std::rotate(_data + i, _data + _size - 1, _data + _size);
        return _data + i;
    }
    T* erase(T const* at) {
        std::size_t const i = static_cast<std::size_t>(at - _data);
        std::move(_data + i + 1, _data + _size, _data + i);
        pop_back();
        return _data + i;
    }
    void pop_back() noexcept { _data[--_size].~T(); }
    void clear() noexcept {
        while (_size > 0)
            pop_back();
    }

private:
    bool inPlace() const noexcept { return _data == reinterpret_cast<T const*>(_place); }
    void relocate(std::size_t capacity) {
        T* d = static_cast<T*>(::operator new(capacity * sizeof(T)));
        for (std::size_t i = 0; i < _size; ++i) {
            new (d + i) T(std::move(_data[i]));
            _data[i].~T();
        }
        if (!inPlace())
            ::operator delete(_data);
        _data = d;
        _capacity = static_cast<std::uint32_t>(capacity);
    }

    T* _data = reinterpret_cast<T*>(_place);
    std::uint32_t _size = 0;
    std::uint32_t _capacity = N;
    alignas(T) unsigned char _place[N * sizeof(T)];
};

} // namespace Vn
