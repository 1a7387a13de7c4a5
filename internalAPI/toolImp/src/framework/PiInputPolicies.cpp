#include "PiInputPolicies.h"
#include "Assertions.h"
#include "ExBase.h"

#include <algorithm>
#include <memory>

namespace Vn {

PiEnumPolicy::PiEnumPolicy(std::vector<Entry> entries, bool animatable, int defaultValue)
    : _entries(std::move(entries)), _animatable(animatable), _default(defaultValue) {
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

template <class T>
PiRangeInputPolicy<T>::PiRangeInputPolicy(T min, T max, T defaultValue, bool hidden)
    : _min(min), _max(max), _default(defaultValue), _hidden(hidden) {
    if (max < min || !isValid(defaultValue))
        VN_THROW_MSG(ExBase, "PiRangeInputPolicy: the default lies outside the range");
}

template <class T>
PiRangeInputPolicy<T>::~PiRangeInputPolicy() = default;

template class PiRangeInputPolicy<int>;
template class PiRangeInputPolicy<double>;

namespace {
std::unique_ptr<PiRangeInputPolicy<int>> s_timeOffset;
std::unique_ptr<PiRangeInputPolicy<int>> s_hiddenTimeOffset;
} // namespace

PiRangeInputPolicy<int> const& PiTimeOffsetInputPolicy::getInstance() {
    VN_ASSERT(s_timeOffset != nullptr);
    return *s_timeOffset;
}

PiRangeInputPolicy<int> const& PiHiddenTimeOffsetInputPolicy::getInstance() {
    VN_ASSERT(s_hiddenTimeOffset != nullptr);
    return *s_hiddenTimeOffset;
}

void PiInputPolicies::initialize() {
    s_timeOffset = std::make_unique<PiRangeInputPolicy<int>>(-31536000, 31536000, 0);
    s_hiddenTimeOffset = std::make_unique<PiRangeInputPolicy<int>>(-31536000, 31536000, 0, true);
}

void PiInputPolicies::finalize() {
    s_hiddenTimeOffset.reset();
    s_timeOffset.reset();
}

} // namespace Vn
