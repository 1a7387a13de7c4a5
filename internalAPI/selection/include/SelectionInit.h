#pragma once

namespace VnInit {
// Tag of the selection package.
struct selection {};
} // namespace VnInit
