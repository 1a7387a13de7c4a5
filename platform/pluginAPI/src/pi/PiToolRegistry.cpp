#include "PiToolRegistry.h"

#include "Assertions.h"
#include "PiToolPredicates.h"

#include <ostream>

namespace Vn {

namespace {
PiToolRegistry* s_instance = nullptr;

// The numbers of a dotted version; a part that is not a number counts as 0.
std::vector<long> versionParts(std::string const& v) {
    std::vector<long> parts;
    std::size_t pos = 0;
    while (pos <= v.size()) {
        std::size_t dot = v.find('.', pos);
        if (dot == std::string::npos)
            dot = v.size();
        long n = 0;
        for (std::size_t i = pos; i < dot; ++i) {
            if (v[i] < '0' || v[i] > '9') {
                n = 0;
                break;
            }
            n = n * 10 + (v[i] - '0');
            if (n > 1000000000L)
                break;
        }
        parts.push_back(n);
        pos = dot + 1;
    }
    while (!parts.empty() && parts.back() == 0)
        parts.pop_back();
    return parts;
}
} // namespace

PiToolRegistry::~PiToolRegistry() = default;

PiToolRegistry& PiToolRegistry::getInstance() {
    PiToolRegistry* instance = s_instance;
    VN_ASSERT(instance);
    return *instance;
}

bool PiToolRegistry::isInitialized() noexcept {
    return s_instance != nullptr;
}

void PiToolRegistry::setInstance(PiToolRegistry* registry) {
    s_instance = registry;
}

std::vector<PiToolRegistry::ToolPtr> PiToolRegistry::getTools(SelectionEnum selection,
                                                              ToolVersions versions) const {
    VN_ASSERT(selection >= ALL_TOOLS && selection <= PUBLIC_TOOLS);
    using Prd = PrdPredicate<ToolPtr>;
    Prd internal = PiToolPredicates::isInternal();
    switch (selection) {
    case ALL_TOOLS:
        return getTools(Prd::all(), versions);
    case INTERNAL_TOOLS:
        return getTools(internal, versions);
    case PUBLIC_TOOLS:
        return getTools(!internal, versions);
    }
    return {};
}

int PiToolRegistry::compareVersions(std::string const& a, std::string const& b) {
    std::vector<long> pa = versionParts(a), pb = versionParts(b);
    return pa < pb ? -1 : pb < pa ? 1 : 0;
}

std::ostream& operator<<(std::ostream& os, PiToolRegistry const& registry) {
    registry.print(os);
    return os;
}

} // namespace Vn
