#pragma once

#include "Assertions.h"
#include "DtTime.h"
#include "PiGraphObject.h"
#include "VnExport.h"

#include <memory>
#include <string>
#include <vector>

namespace Vn {

class PiNode;

// Codes of the stored values' types, as files keep them.
enum class PiValueType : int {
    Bool = 0,
    Double = 1,
    Int = 2,
    Time = 3,
    String = 4,
    DoubleArray = 6,
    IntArray = 7,
    StringArray = 8,
};

// A stored, typed, named value on a node. Writes go through the node's graph: they are undone
// and redone with the graph's commands, and a write of an equal value changes nothing.
class VN_EXPORT PiValue : public PiGraphObject {
public:
    virtual std::string const& getName() const = 0;
    virtual PiValueType getType() const = 0;
    // Null once the node is gone.
    virtual RCShdPtr<PiNode> getNode() const = 0;
    // The archived text of the value; setFromString raises ExBase for a text that is no value of
    // the type, and then changes nothing.
    virtual std::string toString() const = 0;
    virtual void setFromString(std::string const& text) = 0;

    static bool isKnownType(int code) noexcept;
    static char const* getTypeName(PiValueType type) noexcept;
};

// T is bool, double, int, DtTime or std::string.
template <class T>
class VN_EXPORT PiTypedValue : public PiValue {
public:
    virtual T get() const = 0;
    virtual void set(T const& value) = 0;
};

// An array held copy-on-write: readers get a snapshot that never changes under them, and a
// write installs a new array. T is double, int or std::string.
template <class T>
class VN_EXPORT PiTypedValueArray : public PiValue {
public:
    using Array = std::vector<T>;
    using ArrayPtr = std::shared_ptr<Array const>;

    virtual ArrayPtr getArray() const = 0;
    virtual void setArray(Array values) = 0;

    int getSize() const { return static_cast<int>(getArray()->size()); }
    T getElement(int i) const {
        ArrayPtr a = getArray();
        VN_ASSERT(i >= 0 && i < static_cast<int>(a->size()));
        return (*a)[static_cast<std::size_t>(i)];
    }
    void setElement(int i, T value) {
        ArrayPtr a = getArray();
        VN_ASSERT(i >= 0 && i < static_cast<int>(a->size()));
        Array copy(*a);
        copy[static_cast<std::size_t>(i)] = value;
        setArray(std::move(copy));
    }
};

extern template class PiTypedValue<bool>;
extern template class PiTypedValue<double>;
extern template class PiTypedValue<int>;
extern template class PiTypedValue<DtTime>;
extern template class PiTypedValue<std::string>;
extern template class PiTypedValueArray<double>;
extern template class PiTypedValueArray<int>;
extern template class PiTypedValueArray<std::string>;

} // namespace Vn
