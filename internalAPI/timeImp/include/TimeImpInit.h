#pragma once

namespace VnInit {
// Tag of the timeImp package.
struct timeImp {};
} // namespace VnInit
