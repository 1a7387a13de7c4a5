#pragma once

#include "VnExport.h"

#include <climits>
#include <string>

namespace Vn {

// An integer setting from the environment, read once when constructed (normally at static
// construction). A value that is not a whole number within [min, max] is logged and the default
// is used instead.
class VN_EXPORT EnvIntVar {
public:
    EnvIntVar(char const* file, char const* name, int defaultValue, int min = INT_MIN,
              int max = INT_MAX);

    int getValue() const noexcept { return _value; }
    bool isSet() const noexcept { return _set; }
    std::string const& getName() const noexcept { return _name; }
    int getDefault() const noexcept { return _default; }

    // The value `text` gives for a variable with these bounds, or the default; `error` says why
    // the text was refused. Exposed so the parsing rule can be checked without the environment.
    static int parse(char const* text, int defaultValue, int min, int max, std::string* error);

private:
    std::string _name;
    int _default;
    int _value;
    bool _set = false;
};

} // namespace Vn
