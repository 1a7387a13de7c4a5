#include "StatEx.h"

#include <cstdio>

namespace Vn {

namespace {
// Messages are cut to a fixed buffer, as a name may be any length.
std::string format(char const* pattern, std::string const& name) {
    char buffer[1024];
    std::snprintf(buffer, sizeof buffer, pattern, name.c_str());
    return buffer;
}
} // namespace

StatEx::StatEx(char const* file, int line) : ExBase(file, line) {}
StatEx::~StatEx() = default;

StatExExist::StatExExist(char const* file, int line, std::string const& name) : StatEx(file, line) {
    setReason(format("The resource name %s is already registered.", name));
}
StatExExist::~StatExExist() = default;

StatExNotFound::StatExNotFound(char const* file, int line, std::string const& name)
    : StatEx(file, line) {
    setReason(format("%s is not a registered resource name.", name));
}
StatExNotFound::~StatExNotFound() = default;

StatExInvalid::StatExInvalid(char const* file, int line) : StatEx(file, line) {
    setReason("Resource ID is invalid.");
}
StatExInvalid::~StatExInvalid() = default;

} // namespace Vn
