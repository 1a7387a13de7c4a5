#pragma once

#include "VnExport.h"

#include <string>

namespace Vn {

// Names the scope a thread is in, for diagnostics: the names of the guards alive on a thread
// form its stack, outermost first. Pushing and popping cost two stores; names must be static
// texts. Beyond kMaxDepth levels the depth still counts but the names are not kept.
class VN_EXPORT StackGuard {
public:
    static constexpr int kMaxDepth = 64;

    explicit StackGuard(char const* name) noexcept;
    StackGuard(StackGuard const&) = delete;
    StackGuard& operator=(StackGuard const&) = delete;
    ~StackGuard();

    static int getDepth() noexcept;
    // The name at level i (0 is the outermost); "" for a level beyond kMaxDepth.
    static char const* getName(int i) noexcept;
    // The thread's stack as "outer > inner".
    static std::string describe();
};

} // namespace Vn

#define VN_STACK_GUARD_CAT2(a, b) a##b
#define VN_STACK_GUARD_CAT(a, b) VN_STACK_GUARD_CAT2(a, b)
// Names the rest of the enclosing scope.
#define VN_STACK_GUARD(name) ::Vn::StackGuard VN_STACK_GUARD_CAT(vnStackGuard, __LINE__)(name)
