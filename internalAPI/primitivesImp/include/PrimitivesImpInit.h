#pragma once

namespace VnInit {
// Tag of the primitivesImp package.
struct primitivesImp {};
} // namespace VnInit
