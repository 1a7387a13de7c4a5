#include "PiInputPolicy.h"

#include "ExBase.h"
#include "PiNode.h"
#include "PiValue.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace Vn {

namespace {
template <class T>
std::string shown(T const& v) {
    std::ostringstream os;
    if constexpr (std::is_same_v<T, DtTime>)
        os << v.getMicroseconds() << " us";
    else
        os << v;
    return os.str();
}

template <class T>
bool isNaN(T const& v) {
    if constexpr (std::is_floating_point_v<T>)
        return std::isnan(v);
    else
        return false;
}
} // namespace

PiInputPolicy::~PiInputPolicy() = default;

void PiInputPolicy::resetValue(PiInput&) const {}

RCShdPtr<PiValueNode> PiInputPolicy::getValueNode(PiInput const& input) {
    RCShdPtr<PiOutput> out = input.getConnectedOutput();
    if (!out)
        return {};
    return rcDynamicCast<PiValueNode>(out->retrieveNode());
}

template <class T>
PiTypedInputPolicy<T>::PiTypedInputPolicy(T defaultValue, bool animatable, bool hidden)
    : _default(std::move(defaultValue)), _animatable(animatable), _hidden(hidden) {}

template <class T>
PiTypedInputPolicy<T>::~PiTypedInputPolicy() = default;

template <class T>
RCShdPtr<PiTypedInputPolicy<T> const> const& PiTypedInputPolicy<T>::getInstance() {
    static RCShdPtr<PiTypedInputPolicy const> const instance(new PiTypedInputPolicy());
    return instance;
}

template <class T>
void PiTypedInputPolicy<T>::resetValue(PiInput& input) const {
    RCShdPtr<PiValueNode> node = getValueNode(input);
    if (!node)
        return;
    auto value = rcDynamicCast<PiTypedValue<T>>(node->findValue(PiValueNode::VALUE_NAME));
    if (value)
        value->set(_default);
}

template <class T>
PiRangeInputPolicy<T>::PiRangeInputPolicy(T min, T max, T defaultValue, bool hidden,
                                          bool animatable)
    : PiTypedInputPolicy<T>(defaultValue, animatable, hidden), _min(min), _max(max) {
    if (isNaN(min) || isNaN(max) || max < min)
        VN_THROW_MSG(ExBase, "PiRangeInputPolicy: the range [" + shown(min) + ", " + shown(max) +
                                 "] is empty");
    if (!isValid(defaultValue))
        VN_THROW_MSG(ExBase, "PiRangeInputPolicy: the default " + shown(defaultValue) +
                                 " lies outside [" + shown(min) + ", " + shown(max) + "]");
}

template <class T>
PiRangeInputPolicy<T>::~PiRangeInputPolicy() = default;

template <class T>
RCShdPtr<PiRangeInputPolicy<T> const> PiRangeInputPolicy<T>::create(T min, T max, T defaultValue,
                                                                    bool hidden, bool animatable) {
    return RCShdPtr<PiRangeInputPolicy const>(
        new PiRangeInputPolicy(min, max, defaultValue, hidden, animatable));
}

template <class T>
T PiRangeInputPolicy<T>::filterValue(T const& v) const {
    // NaN compares false with both ends and would pass a plain clamp.
    if (isNaN(v))
        return this->getDefaultValue();
    return clamp(v);
}

PiEnumPolicy::PiEnumPolicy(std::vector<Entry> entries, bool animatable, int defaultValue)
    : PiTypedInputPolicy<int>(defaultValue, animatable), _entries(std::move(entries)) {
    for (std::size_t i = 0; i < _entries.size(); ++i)
        for (std::size_t j = i + 1; j < _entries.size(); ++j)
            if (_entries[i].first == _entries[j].first || _entries[i].second == _entries[j].second)
                VN_THROW_MSG(ExBase, "PiEnumPolicy: \"" + _entries[j].second + "\" is not unique");
    if (!isValid(defaultValue))
        VN_THROW_MSG(ExBase,
                     "PiEnumPolicy: default " + std::to_string(defaultValue) + " is not a choice");
}

PiEnumPolicy::~PiEnumPolicy() = default;

bool PiEnumPolicy::isValid(int value) const noexcept {
    return std::any_of(_entries.begin(), _entries.end(),
                       [&](Entry const& e) { return e.first == value; });
}

int PiEnumPolicy::filterValue(int const& v) const {
    return isValid(v) ? v : getDefaultValue();
}

std::string const& PiEnumPolicy::getLabel(int value) const {
    for (Entry const& e : _entries)
        if (e.first == value)
            return e.second;
    VN_THROW_MSG(ExBase, "PiEnumPolicy: no choice has the value " + std::to_string(value));
}

int PiEnumPolicy::getValue(std::string const& label) const {
    for (Entry const& e : _entries)
        if (e.second == label)
            return e.first;
    VN_THROW_MSG(ExBase, "PiEnumPolicy: no choice is labelled \"" + label + "\"");
}

PiShape2dInputPolicy::PiShape2dInputPolicy(int curveType, bool withPointActivation,
                                           bool withPressure)
    : _curveType(curveType), _withPointActivation(withPointActivation),
      _withPressure(withPressure) {}

PiShape2dInputPolicy::~PiShape2dInputPolicy() = default;

RCShdPtr<PiShape2dInputPolicy const>
PiShape2dInputPolicy::create(int curveType, bool withPointActivation, bool withPressure) {
    return RCShdPtr<PiShape2dInputPolicy const>(
        new PiShape2dInputPolicy(curveType, withPointActivation, withPressure));
}

RCShdPtr<PiShape2dInputPolicy const> const& PiShape2dInputPolicy::getDefault() {
    static RCShdPtr<PiShape2dInputPolicy const> const instance(
        new PiShape2dInputPolicy(-1, false, false));
    return instance;
}

std::type_info const& PiShape2dInputPolicy::getValueType() const {
    // Shapes have no value class here: the policy class stands for them.
    return typeid(PiShape2dInputPolicy);
}

template class PiTypedInputPolicy<bool>;
template class PiTypedInputPolicy<double>;
template class PiTypedInputPolicy<int>;
template class PiTypedInputPolicy<std::string>;
template class PiTypedInputPolicy<DtTime>;
template class PiRangeInputPolicy<int>;
template class PiRangeInputPolicy<double>;

} // namespace Vn
