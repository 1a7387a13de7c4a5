#pragma once

#include "ExBase.h"

namespace Vn::PxEx {

// A request, or the tree of an external request, was cancelled.
class VN_EXPORT ExRequestCancelled : public ExBase {
public:
    ExRequestCancelled(char const* file, int line);
    ~ExRequestCancelled() override;
    VN_EX_CLONE_RAISE(ExRequestCancelled)
};

// A request could not produce its result; the cause was reported where it happened.
class VN_EXPORT ExRequestFailed : public ExBase {
public:
    ExRequestFailed(char const* file, int line);
    ~ExRequestFailed() override;
    VN_EX_CLONE_RAISE(ExRequestFailed)
};

} // namespace Vn::PxEx
