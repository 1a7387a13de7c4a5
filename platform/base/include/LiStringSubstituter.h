#pragma once

#include "VnExport.h"

#include <functional>
#include <string>

namespace Vn {

// The process-wide text substitution: patterns such as "<RenderFolder>" in a text are replaced
// by what their expander gives at the time of the substitution. Patterns are registered during
// start-up; substitution is safe from any thread.
class VN_EXPORT LiStringSubstituter {
public:
    using Expander = std::function<std::string()>;

    // A second registration of a pattern replaces the first.
    static void registerPattern(std::string const& pattern, Expander expander);
    // Nothing when the pattern is not registered.
    static void unregisterPattern(std::string const& pattern);
    static bool isRegistered(std::string const& pattern);
    // Every occurrence of every registered pattern replaced, left to right; an expansion is not
    // searched again, so a pattern that expands to itself cannot loop.
    static std::string substitute(std::string const& text);
};

} // namespace Vn
