#pragma once

#include "DtTimeInterval.h"
#include "ExBase.h"
#include "GeInterval.h"
#include "GeRectangle.h"
#include "RCBase.h"
#include "VnExport.h"

#include <initializer_list>
#include <iosfwd>
#include <vector>

namespace Vn {

// The parts of one selected thing that a selection item narrows to: control points of a
// curve, time spans, rectangles. Parts of different types never mix: an operation with parts
// of another type answers false and changes nothing. Not safe across threads.
class VN_EXPORT SnParts : public RCBase<int> {
public:
    // For clients that treat a mismatch of part types as a failure.
    class VN_EXPORT ExPartsMismatch : public ExBase {
    public:
        ExPartsMismatch(char const* file, int line);
        ~ExPartsMismatch() override;
        VN_EX_CLONE_RAISE(ExPartsMismatch)
    };

    ~SnParts() override;

    // A new object with the same parts, not yet referenced.
    virtual SnParts* clone() const = 0;
    // The same parts in the same order.
    virtual bool isEqual(RCShdPtr<SnParts const> const& rhs) const = 0;
    // rhs's parts occur as one unbroken run of these, in order. Null rhs is contained in
    // anything; an empty rhs only in non-empty parts.
    virtual bool contains(RCShdPtr<SnParts const> const& rhs) const = 0;
    virtual bool isEmpty() const = 0;
    virtual int getSize() const = 0;
    virtual void clear() = 0;
    virtual void replaceAllParts(RCShdPtr<SnParts const> const& rhs) = 0;
    // Each returns whether these parts changed.
    virtual bool unionWith(RCShdPtr<SnParts const> const& rhs) = 0;
    virtual bool differenceWith(RCShdPtr<SnParts const> const& rhs) = 0;
    // True whenever rhs has a part, even if its effects cancel.
    virtual bool xorWith(RCShdPtr<SnParts const> const& rhs) = 0;
    // Each part followed by a blank.
    virtual void dump(std::ostream& os) const = 0;

protected:
    SnParts() = default;
    SnParts(SnParts const&) = default;
    SnParts& operator=(SnParts const&) = default;
};

// Parts of type T, in insertion order; the order counts in comparisons. Instantiated for int,
// double, GeInterval<int>, GePoint<int>, GeRectangle<int> and DtTimeInterval. Parts compare
// exactly: doubles without tolerance, rectangles and intervals by their bounds, except that all
// empty DtTimeIntervals are equal.
template <class T>
class VN_EXPORT SnPartsBasic : public SnParts {
public:
    SnPartsBasic();
    SnPartsBasic(std::initializer_list<T> parts);
    SnPartsBasic(SnPartsBasic const& o);
    SnPartsBasic& operator=(SnPartsBasic const& o);
    ~SnPartsBasic() override;

    SnParts* clone() const override;
    bool isEqual(RCShdPtr<SnParts const> const& rhs) const override;
    bool contains(RCShdPtr<SnParts const> const& rhs) const override;
    bool isEmpty() const override;
    int getSize() const override;
    void clear() override;
    void replaceAllParts(RCShdPtr<SnParts const> const& rhs) override;
    bool unionWith(RCShdPtr<SnParts const> const& rhs) override;
    bool differenceWith(RCShdPtr<SnParts const> const& rhs) override;
    bool xorWith(RCShdPtr<SnParts const> const& rhs) override;
    void dump(std::ostream& os) const override;

    // At the end, even if an equal part is there.
    void append(T const& part);
    // Erases the first equal part, if any.
    void remove(T const& part);
    bool hasPart(T const& part) const;
    std::vector<T> const& getParts() const noexcept { return _parts; }

private:
    std::vector<T> _parts;
};

extern template class SnPartsBasic<int>;
extern template class SnPartsBasic<double>;
extern template class SnPartsBasic<GeInterval<int>>;
extern template class SnPartsBasic<GePoint<int>>;
extern template class SnPartsBasic<GeRectangle<int>>;
extern template class SnPartsBasic<DtTimeInterval>;

// Writes the parts' dump, or "(none)" for null.
VN_EXPORT std::ostream& operator<<(std::ostream& os, RCShdPtr<SnParts const> const& parts);

} // namespace Vn
