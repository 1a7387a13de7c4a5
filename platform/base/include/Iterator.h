#pragma once

#include "Assertions.h"
#include "OPtr.h"
#include "VnExport.h"

#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace Vn {

// A cursor over some sequence, behind an Iterator. A new cursor stands on the first element.
template <class T>
class VN_EXPORT IteratorImp {
public:
    IteratorImp() = default;
    IteratorImp(IteratorImp const&) = default;
    IteratorImp& operator=(IteratorImp const&) = default;
    virtual ~IteratorImp() = default;

    // A cursor at the same position over the same sequence.
    virtual OPtrRet<IteratorImp> clone() const = 0;
    // The number of elements of the whole sequence.
    virtual int getCardinality() const = 0;
    // Back to the first element.
    virtual void first() = 0;
    virtual bool atEnd() const = 0;
    virtual void next() = 0;
    virtual T& item() const = 0;
};

// A polymorphic iterator held by value: copying it copies its position, and the copy moves on
// its own. A default-constructed iterator is empty.
template <class T>
class VN_EXPORT Iterator {
public:
    using Imp = IteratorImp<T>;

    Iterator() = default;
    explicit Iterator(OPtr<Imp> imp) noexcept : _imp(std::move(imp)) {}
    Iterator(Iterator const& o) : _imp(o._imp ? o._imp->clone() : nullptr) {}
    Iterator(Iterator&&) noexcept = default;
    Iterator& operator=(Iterator const& o) {
        if (this != &o)
            _imp = o._imp ? o._imp->clone() : nullptr;
        return *this;
    }
    Iterator& operator=(Iterator&&) noexcept = default;

    int getCardinality() const { return _imp ? _imp->getCardinality() : 0; }
    void first() {
        if (_imp)
            _imp->first();
    }
    bool atEnd() const { return !_imp || _imp->atEnd(); }
    void next() {
        VN_ASSERT(!atEnd());
        _imp->next();
    }
    T& item() const {
        VN_ASSERT(!atEnd());
        return _imp->item();
    }

    // A view of [begin, end): the sequence must outlive the iterator and its copies.
    template <class It>
    static Iterator overRange(It begin, It end) {
        return Iterator(OPtr<Imp>(new RangeImp<It>(begin, begin, end)));
    }
    // Iterates over its own copy of the values; copies of the iterator share it.
    static Iterator overValues(std::vector<std::remove_const_t<T>> values) {
        auto shared = std::make_shared<std::vector<std::remove_const_t<T>>>(std::move(values));
        return Iterator(OPtr<Imp>(new OwningImp(std::move(shared), 0)));
    }

private:
    template <class It>
    class RangeImp final : public Imp {
    public:
        RangeImp(It begin, It pos, It end) : _begin(begin), _pos(pos), _end(end) {}
        OPtrRet<Imp> clone() const override {
            return OPtrRet<Imp>(new RangeImp(_begin, _pos, _end));
        }
        int getCardinality() const override {
            return static_cast<int>(std::distance(_begin, _end));
        }
        void first() override { _pos = _begin; }
        bool atEnd() const override { return _pos == _end; }
        void next() override { ++_pos; }
        T& item() const override { return *_pos; }

    private:
        It _begin, _pos, _end;
    };

    class OwningImp final : public Imp {
    public:
        using Values = std::vector<std::remove_const_t<T>>;
        OwningImp(std::shared_ptr<Values> values, std::size_t pos)
            : _values(std::move(values)), _pos(pos) {}
        OPtrRet<Imp> clone() const override { return OPtrRet<Imp>(new OwningImp(_values, _pos)); }
        int getCardinality() const override { return static_cast<int>(_values->size()); }
        void first() override { _pos = 0; }
        bool atEnd() const override { return _pos >= _values->size(); }
        void next() override { ++_pos; }
        T& item() const override { return (*_values)[_pos]; }

    private:
        std::shared_ptr<Values> _values;
        std::size_t _pos;
    };

    OPtr<Imp> _imp;
};

// An iterator that gives its elements read-only. Any Iterator<T> converts to it.
template <class T>
class VN_EXPORT ConstIterator {
public:
    ConstIterator() = default;
    explicit ConstIterator(Iterator<T const> it) : _it(std::move(it)) {}
    ConstIterator(Iterator<T> const& it)
        : _it(OPtr<IteratorImp<T const>>(new Adapter(Iterator<T>(it)))) {}

    int getCardinality() const { return _it.getCardinality(); }
    void first() { _it.first(); }
    bool atEnd() const { return _it.atEnd(); }
    void next() { _it.next(); }
    T const& item() const { return _it.item(); }

private:
    class Adapter final : public IteratorImp<T const> {
    public:
        explicit Adapter(Iterator<T> it) : _it(std::move(it)) {}
        OPtrRet<IteratorImp<T const>> clone() const override {
            return OPtrRet<IteratorImp<T const>>(new Adapter(_it));
        }
        int getCardinality() const override { return _it.getCardinality(); }
        void first() override { _it.first(); }
        bool atEnd() const override { return _it.atEnd(); }
        void next() override { _it.next(); }
        T const& item() const override { return _it.item(); }

    private:
        Iterator<T> _it;
    };

    Iterator<T const> _it;
};

} // namespace Vn
