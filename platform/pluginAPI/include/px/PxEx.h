#pragma once

#include "ExBase.h"

#include <string>

namespace Vn::PxEx {

// A request, or the tree of an external request, was cancelled.
class VN_EXPORT ExRequestCancelled : public ExBase {
public:
    ExRequestCancelled(char const* file, int line);
    ~ExRequestCancelled() override;
    VN_EX_CLONE_RAISE(ExRequestCancelled)
};

// A request could not produce its result; the cause was reported where it happened.
// A node was given a parameter it cannot work with; the reason says which and why.
class VN_EXPORT ExInvalidParameter : public ExBase {
public:
    ExInvalidParameter(char const* file, int line, std::string reason);
    ~ExInvalidParameter() override;
    VN_EX_CLONE_RAISE(ExInvalidParameter)
};

// A request failed; what failed was raised in it.
class VN_EXPORT ExRequestFailed : public ExBase {
public:
    ExRequestFailed(char const* file, int line);
    ~ExRequestFailed() override;
    VN_EX_CLONE_RAISE(ExRequestFailed)
};

// A request was asked to run deeper than its worker's stack allows; the reason gives the stack
// size and the setting that raises it.
class VN_EXPORT ExGraphTooDeep : public ExBase {
public:
    ExGraphTooDeep(char const* file, int line, std::string reason);
    ~ExGraphTooDeep() override;
    VN_EX_CLONE_RAISE(ExGraphTooDeep)
};

} // namespace Vn::PxEx
