#include "StackGuard.h"

namespace Vn {

namespace {
struct ThreadStack {
    int depth = 0;
    char const* names[StackGuard::kMaxDepth] = {};
};
constinit thread_local ThreadStack t_stack;
} // namespace

StackGuard::StackGuard(char const* name) noexcept {
    ThreadStack& s = t_stack;
    if (s.depth < kMaxDepth)
        s.names[s.depth] = name;
    ++s.depth;
}

StackGuard::~StackGuard() {
    --t_stack.depth;
}

int StackGuard::getDepth() noexcept {
    return t_stack.depth;
}

char const* StackGuard::getName(int i) noexcept {
    ThreadStack const& s = t_stack;
    if (i < 0 || i >= s.depth || i >= kMaxDepth)
        return "";
    return s.names[i];
}

std::string StackGuard::describe() {
    std::string out;
    for (int i = 0; i < getDepth(); ++i) {
        if (i > 0)
            out += " > ";
        out += i < kMaxDepth ? getName(i) : "...";
    }
    return out;
}

} // namespace Vn
