#include "PiInputPolicies.h"

#include "Assertions.h"

namespace Vn {

namespace {
RCShdPtr<PiRangeInputPolicy<int> const> s_timeOffset;
RCShdPtr<PiRangeInputPolicy<int> const> s_hiddenTimeOffset;
} // namespace

PiRangeInputPolicy<int> const& PiTimeOffsetInputPolicy::getInstance() {
    return *getShared();
}

RCShdPtr<PiRangeInputPolicy<int> const> const& PiTimeOffsetInputPolicy::getShared() {
    VN_ASSERT(s_timeOffset);
    return s_timeOffset;
}

PiRangeInputPolicy<int> const& PiHiddenTimeOffsetInputPolicy::getInstance() {
    return *getShared();
}

RCShdPtr<PiRangeInputPolicy<int> const> const& PiHiddenTimeOffsetInputPolicy::getShared() {
    VN_ASSERT(s_hiddenTimeOffset);
    return s_hiddenTimeOffset;
}

void PiInputPolicies::initialize() {
    s_timeOffset = PiRangeInputPolicy<int>::create(-31536000, 31536000, 0);
    s_hiddenTimeOffset = PiRangeInputPolicy<int>::create(-31536000, 31536000, 0, true);
}

void PiInputPolicies::finalize() {
    s_hiddenTimeOffset = {};
    s_timeOffset = {};
}

} // namespace Vn
