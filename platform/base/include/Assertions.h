#pragma once

#include "VnExport.h"

namespace Vn {

// Precondition failures and program stops. Both raise exceptions derived from ExBase and never
// return; neither is meant to be caught as a normal path.
class VN_EXPORT Assertions {
public:
    [[noreturn]] static void throwAssertionFailed(char const* file, int line, char const* text);
    [[noreturn]] static void throwProgramAborted(char const* file, int line, char const* text);
};

} // namespace Vn

// The text of a failed assertion is the condition exactly as written.
#define VN_ASSERT(cond)                                                                            \
    do {                                                                                           \
        if (!(cond)) [[unlikely]]                                                                  \
            ::Vn::Assertions::throwAssertionFailed(__FILE__, __LINE__, #cond);                     \
    } while (0)

#define VN_ABORT(text) ::Vn::Assertions::throwProgramAborted(__FILE__, __LINE__, text)
