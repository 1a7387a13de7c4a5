#include "LiString.h"

#include "RCExUtil.h"

#include <ostream>

namespace Vn {

LiString::LiString(char const* text) {
    if (!text)
        RCExUtil::throwExNullPtr("char const*");
    _text = text;
}

std::ostream& operator<<(std::ostream& os, LiString const& s) {
    return os << s.str();
}

} // namespace Vn
