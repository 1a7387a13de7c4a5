#include "SnParts.h"

#include <algorithm>
#include <ostream>

namespace Vn {

namespace {
// The equality of parts that every search uses, and how a part is written.
bool samePart(int a, int b) {
    return a == b;
}
bool samePart(double a, double b) {
    return a == b;
}
bool samePart(GeInterval<int> const& a, GeInterval<int> const& b) {
    return a.first == b.first && a.second == b.second;
}
bool samePart(GePoint<int> const& a, GePoint<int> const& b) {
    return a.x == b.x && a.y == b.y;
}
// Not GeRectangle's own equality, which makes every empty rectangle equal.
bool samePart(GeRectangle<int> const& a, GeRectangle<int> const& b) {
    return a.xmin == b.xmin && a.xmax == b.xmax && a.ymin == b.ymin && a.ymax == b.ymax;
}
bool samePart(DtTimeInterval const& a, DtTimeInterval const& b) {
    return a == b;
}

void writePart(std::ostream& os, int v) {
    os << v;
}
void writePart(std::ostream& os, double v) {
    os << v;
}
void writePart(std::ostream& os, GeInterval<int> const& v) {
    v.dump(os);
}
void writePart(std::ostream& os, GePoint<int> const& v) {
    os << "( " << v.x << ", " << v.y << " )";
}
void writePart(std::ostream& os, GeRectangle<int> const& v) {
    os << "( " << v.xmin << ", " << v.xmax << ", " << v.ymin << ", " << v.ymax << " )";
}
void writePart(std::ostream& os, DtTimeInterval const& v) {
    v.dump(os);
}

template <class T>
auto findPart(std::vector<T>& parts, T const& part) {
    return std::find_if(parts.begin(), parts.end(), [&](T const& p) { return samePart(p, part); });
}
} // namespace

SnParts::ExPartsMismatch::ExPartsMismatch(char const* file, int line) : ExBase(file, line) {
    setReason("Parts mismatch.");
}

SnParts::ExPartsMismatch::~ExPartsMismatch() = default;

SnParts::~SnParts() = default;

std::ostream& operator<<(std::ostream& os, RCShdPtr<SnParts const> const& parts) {
    if (parts)
        parts->dump(os);
    else
        os << "(none)";
    return os;
}

template <class T>
SnPartsBasic<T>::SnPartsBasic() = default;

template <class T>
SnPartsBasic<T>::SnPartsBasic(std::initializer_list<T> parts) : _parts(parts) {}

template <class T>
SnPartsBasic<T>::SnPartsBasic(SnPartsBasic const& o) : SnParts(o), _parts(o._parts) {}

template <class T>
SnPartsBasic<T>& SnPartsBasic<T>::operator=(SnPartsBasic const& o) {
    _parts = o._parts;
    return *this;
}

template <class T>
SnPartsBasic<T>::~SnPartsBasic() = default;

template <class T>
SnParts* SnPartsBasic<T>::clone() const {
    return new SnPartsBasic(*this);
}

template <class T>
bool SnPartsBasic<T>::isEqual(RCShdPtr<SnParts const> const& rhs) const {
    auto const* r = dynamic_cast<SnPartsBasic const*>(rhs.get());
    if (!r)
        return false;
    return std::equal(_parts.begin(), _parts.end(), r->_parts.begin(), r->_parts.end(),
                      [](T const& a, T const& b) { return samePart(a, b); });
}

template <class T>
bool SnPartsBasic<T>::contains(RCShdPtr<SnParts const> const& rhs) const {
    if (!rhs)
        return true;
    auto const* r = dynamic_cast<SnPartsBasic const*>(rhs.get());
    if (!r)
        return false;
    if (r->_parts.empty())
        return !_parts.empty();
    return std::search(_parts.begin(), _parts.end(), r->_parts.begin(), r->_parts.end(),
                       [](T const& a, T const& b) { return samePart(a, b); }) != _parts.end();
}

template <class T>
bool SnPartsBasic<T>::isEmpty() const {
    return _parts.empty();
}

template <class T>
int SnPartsBasic<T>::getSize() const {
    return static_cast<int>(_parts.size());
}

template <class T>
void SnPartsBasic<T>::clear() {
    _parts.clear();
}

template <class T>
void SnPartsBasic<T>::replaceAllParts(RCShdPtr<SnParts const> const& rhs) {
    if (auto const* r = dynamic_cast<SnPartsBasic const*>(rhs.get()))
        _parts = r->_parts;
}

template <class T>
bool SnPartsBasic<T>::unionWith(RCShdPtr<SnParts const> const& rhs) {
    auto const* r = dynamic_cast<SnPartsBasic const*>(rhs.get());
    if (!r)
        return false;
    bool changed = false;
    for (T const& p : r->_parts) {
        if (findPart(_parts, p) == _parts.end()) {
            _parts.push_back(p);
            changed = true;
        }
    }
    return changed;
}

template <class T>
bool SnPartsBasic<T>::differenceWith(RCShdPtr<SnParts const> const& rhs) {
    auto const* r = dynamic_cast<SnPartsBasic const*>(rhs.get());
    if (!r)
        return false;
    bool changed = false;
    for (T const& p : r->_parts) {
        auto it = findPart(_parts, p);
        if (it != _parts.end()) {
            _parts.erase(it);
            changed = true;
        }
    }
    return changed;
}

template <class T>
bool SnPartsBasic<T>::xorWith(RCShdPtr<SnParts const> const& rhs) {
    auto const* r = dynamic_cast<SnPartsBasic const*>(rhs.get());
    if (!r)
        return false;
    for (T const& p : r->_parts) {
        auto it = findPart(_parts, p);
        if (it == _parts.end())
            _parts.push_back(p);
        else
            _parts.erase(it);
    }
    return !r->_parts.empty();
}

template <class T>
void SnPartsBasic<T>::dump(std::ostream& os) const {
    for (T const& p : _parts) {
        writePart(os, p);
        os << ' ';
    }
}

template <class T>
void SnPartsBasic<T>::append(T const& part) {
    _parts.push_back(part);
}

template <class T>
void SnPartsBasic<T>::remove(T const& part) {
    auto it = findPart(_parts, part);
    if (it != _parts.end())
        _parts.erase(it);
}

template <class T>
bool SnPartsBasic<T>::hasPart(T const& part) const {
    return std::any_of(_parts.begin(), _parts.end(), [&](T const& p) { return samePart(p, part); });
}

template class SnPartsBasic<int>;
template class SnPartsBasic<double>;
template class SnPartsBasic<GeInterval<int>>;
template class SnPartsBasic<GePoint<int>>;
template class SnPartsBasic<GeRectangle<int>>;
template class SnPartsBasic<DtTimeInterval>;

} // namespace Vn
