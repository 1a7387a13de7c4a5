#pragma once

#include "PiInputPolicy.h"
#include "VnExport.h"

namespace Vn {

// A time offset in frames, over the whole time axis.
class VN_EXPORT PiTimeOffsetInputPolicy {
public:
    static PiRangeInputPolicy<int> const& getInstance();
    static RCShdPtr<PiRangeInputPolicy<int> const> const& getShared();
};

// The same, for inputs not shown to the user.
class VN_EXPORT PiHiddenTimeOffsetInputPolicy {
public:
    static PiRangeInputPolicy<int> const& getInstance();
    static RCShdPtr<PiRangeInputPolicy<int> const> const& getShared();
};

// The shared policies of the tools: made at the package's start, gone at its end.
class VN_EXPORT PiInputPolicies {
public:
    static void initialize();
    static void finalize();
};

} // namespace Vn
