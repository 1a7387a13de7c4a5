#pragma once

#include "Assertions.h"
#include "StatContainerBase.h"
#include "StatMemPool.h"
#include "VnExport.h"

#include <cstddef>
#include <iterator>

namespace Vn {

// The samples of one kind, in the order they were recorded. Each sample is a copy of the value
// object, so it shares the object's state until the object changes again. Recording takes one
// node from StatMemPool.
template <class T>
class VN_EXPORT StatList : public StatContainerBase {
    struct Link {
        Link* _prev;
        Link* _next;
    };
    struct Node : Link {
        explicit Node(T const& value) : Link{nullptr, nullptr}, _value(value) {}
        static void* operator new(std::size_t size) { return StatMemPool::alloc(size); }
        static void operator delete(void* block, std::size_t size) noexcept {
            StatMemPool::free(block, size);
        }
        T _value;
    };

public:
    using value_type = T;

    class const_iterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T const*;
        using reference = T const&;

        const_iterator() noexcept = default;
        reference operator*() const noexcept { return static_cast<Node const*>(_link)->_value; }
        pointer operator->() const noexcept { return &operator*(); }
        const_iterator& operator++() noexcept {
            _link = _link->_next;
            return *this;
        }
        const_iterator operator++(int) noexcept {
            const_iterator old = *this;
            _link = _link->_next;
            return old;
        }
        const_iterator& operator--() noexcept {
            _link = _link->_prev;
            return *this;
        }
        const_iterator operator--(int) noexcept {
            const_iterator old = *this;
            _link = _link->_prev;
            return old;
        }
        bool operator==(const_iterator const& o) const noexcept { return _link == o._link; }

    private:
        friend class StatList;
        explicit const_iterator(Link const* link) noexcept : _link(link) {}
        Link const* _link = nullptr;
    };

    StatList() noexcept : _end{&_end, &_end} {}
    ~StatList() override { clear(); }

    // Appends a copy of value.
    void push_back(T const& value) {
        Node* node = new Node(value);
        node->_prev = _end._prev;
        node->_next = &_end;
        _end._prev->_next = node;
        _end._prev = node;
        ++_size;
    }

    std::size_t size() const noexcept { return _size; }
    bool empty() const noexcept { return _size == 0; }
    const_iterator begin() const noexcept { return const_iterator(_end._next); }
    const_iterator end() const noexcept { return const_iterator(&_end); }
    T const& front() const {
        VN_ASSERT(!empty());
        return *begin();
    }
    T const& back() const {
        VN_ASSERT(!empty());
        return static_cast<Node const*>(_end._prev)->_value;
    }

    void clear() noexcept {
        Link* link = _end._next;
        while (link != &_end) {
            Link* next = link->_next;
            delete static_cast<Node*>(link);
            link = next;
        }
        _end._prev = _end._next = &_end;
        _size = 0;
    }

private:
    Link _end;
    std::size_t _size = 0;
};

} // namespace Vn
