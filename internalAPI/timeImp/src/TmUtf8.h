#pragma once

#include <string>

namespace Vn {

// Wide text as UTF-8, the system's narrow encoding. A unit that is no Unicode scalar value
// (a surrogate, or beyond U+10FFFF) becomes U+FFFD.
std::string tmNarrowToUtf8(std::wstring const& wide);

} // namespace Vn
