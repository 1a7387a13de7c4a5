#pragma once

namespace VnInit {
// Tag of the internalAPI package.
struct internalAPI {};
} // namespace VnInit
