#include "EnvIntVar.h"
#include "LgLog.h"

#include <cerrno>
#include <cstdlib>

namespace Vn {

namespace {
LgMinorGroup& envGroup() {
    static auto* g = new LgMinorGroup(LgMajorGroup::getInstanceForName("Rm"), "Env");
    return *g;
}
} // namespace

int EnvIntVar::parse(char const* text, int defaultValue, int min, int max, std::string* error) {
    auto refuse = [&](char const* why) {
        if (error)
            *error = why;
        return defaultValue;
    };
    if (!text || !*text)
        return refuse("empty");
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text, &end, 10);
    while (*end == ' ' || *end == '\t')
        ++end;
    if (end == text || *end != '\0')
        return refuse("not a whole number");
    if (errno == ERANGE || v < min || v > max)
        return refuse("out of range");
    if (error)
        error->clear();
    return static_cast<int>(v);
}

EnvIntVar::EnvIntVar(char const* /*file*/, char const* name, int defaultValue, int min, int max)
    : _name(name ? name : ""), _default(defaultValue), _value(defaultValue) {
    char const* text = std::getenv(_name.c_str());
    if (!text)
        return;
    std::string error;
    _value = parse(text, defaultValue, min, max, &error);
    _set = error.empty();
    if (!_set)
        VN_LOG(envGroup(), 1,
               _name << "='" << text << "' is " << error << " (expected " << min << " to " << max
                     << "); using " << defaultValue);
}

} // namespace Vn
