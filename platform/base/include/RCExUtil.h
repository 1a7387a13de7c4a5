#pragma once

#include "VnExport.h"

namespace Vn {

// Raising points for handles: a null dereference or a failed cast.
class VN_EXPORT RCExUtil {
public:
    [[noreturn]] static void throwExNullPtr(char const* typeName);
    [[noreturn]] static void throwExCastFailed(char const* fromType, char const* toType);
};

} // namespace Vn
