#pragma once

namespace VnInit {
// Tag of the statistics package.
struct statistics {};
} // namespace VnInit
