#include "LiStringSubstituter.h"

#include <map>
#include <mutex>

namespace Vn {

namespace {
struct Registry {
    std::mutex mutex;
    std::map<std::string, LiStringSubstituter::Expander> patterns;
};

Registry& registry() {
    // Never destroyed: packages unregister their patterns during static destruction.
    static Registry* r = new Registry;
    return *r;
}
} // namespace

void LiStringSubstituter::registerPattern(std::string const& pattern, Expander expander) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.patterns[pattern] = std::move(expander);
}

void LiStringSubstituter::unregisterPattern(std::string const& pattern) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.patterns.erase(pattern);
}

bool LiStringSubstituter::isRegistered(std::string const& pattern) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.patterns.count(pattern) != 0;
}

std::string LiStringSubstituter::substitute(std::string const& text) {
    // Copied out so that an expander may itself use the substituter.
    std::map<std::string, Expander> patterns;
    {
        Registry& r = registry();
        std::lock_guard lock(r.mutex);
        patterns = r.patterns;
    }
    std::string out;
    std::size_t i = 0;
    while (i < text.size()) {
        auto found = patterns.end();
        std::size_t at = std::string::npos;
        for (auto it = patterns.begin(); it != patterns.end(); ++it) {
            if (it->first.empty())
                continue;
            std::size_t const p = text.find(it->first, i);
            if (p < at) {
                at = p;
                found = it;
            }
        }
        if (found == patterns.end()) {
            out.append(text, i, std::string::npos);
            break;
        }
        out.append(text, i, at - i);
        out += found->second ? found->second() : std::string();
        i = at + found->first.size();
    }
    return out;
}

} // namespace Vn
