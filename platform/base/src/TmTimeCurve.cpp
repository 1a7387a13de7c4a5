#include "TmTimeCurve.h"

#include "ExBase.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace Vn {

namespace {
void checkFinite(double v, char const* what) {
    if (!std::isfinite(v))
        VN_THROW_MSG(ExBase, std::string("a keyframe's ") + what + " must be finite, not " +
                                 std::to_string(v));
}
} // namespace

RCShdPtr<TmKeyframe> TmKeyframe::create(double time, double value) {
    checkFinite(time, "time");
    checkFinite(value, "value");
    return RCShdPtr<TmKeyframe>(new TmKeyframe(time, value));
}

TmKeyframe::~TmKeyframe() = default;

void TmKeyframe::setValue(double value) {
    checkFinite(value, "value");
    _value = value;
}

RCShdPtr<TmTimeCurve> TmTimeCurve::create() {
    return RCShdPtr<TmTimeCurve>(new TmTimeCurve);
}

TmTimeCurve::~TmTimeCurve() = default;

std::vector<TmTimeCurve::KeyPtr>::const_iterator TmTimeCurve::lowerBound(double time) const {
    return std::lower_bound(_keys.begin(), _keys.end(), time,
                            [](KeyPtr const& k, double t) { return k->getTime() < t; });
}

TmTimeCurve::KeyPtr TmTimeCurve::insert(KeyPtr const& key) {
    double const t = key->getTime();
    auto it = _keys.begin() + (lowerBound(t) - _keys.cbegin());
    if (it != _keys.end() && (*it)->getTime() == t) {
        KeyPtr old = *it;
        *it = key;
        return old;
    }
    _keys.insert(it, key);
    return {};
}

bool TmTimeCurve::remove(KeyPtr const& key) {
    if (!key)
        return false;
    auto it = lowerBound(key->getTime());
    if (it == _keys.cend() || it->get() != key.get())
        return false;
    _keys.erase(it);
    return true;
}

TmTimeCurve::KeyPtr TmTimeCurve::removeAt(double time) {
    auto it = lowerBound(time);
    if (it == _keys.cend() || (*it)->getTime() != time)
        return {};
    KeyPtr old = *it;
    _keys.erase(it);
    return old;
}

TmTimeCurve::KeyPtr TmTimeCurve::find(double time) const {
    auto it = lowerBound(time);
    return it != _keys.cend() && (*it)->getTime() == time ? *it : KeyPtr();
}

TmTimeCurve::KeyPtr TmTimeCurve::findAtOrBefore(double time) const {
    if (std::isnan(time))
        return {};
    auto it = std::upper_bound(_keys.begin(), _keys.end(), time,
                               [](double t, KeyPtr const& k) { return t < k->getTime(); });
    return it == _keys.begin() ? KeyPtr() : *(it - 1);
}

TmTimeCurve::KeyPtr TmTimeCurve::findAfter(double time) const {
    if (std::isnan(time))
        return {};
    auto it = std::upper_bound(_keys.begin(), _keys.end(), time,
                               [](double t, KeyPtr const& k) { return t < k->getTime(); });
    return it == _keys.end() ? KeyPtr() : *it;
}

bool TmTimeCurve::contains(KeyPtr const& key) const {
    if (!key)
        return false;
    auto it = lowerBound(key->getTime());
    return it != _keys.cend() && it->get() == key.get();
}

} // namespace Vn
