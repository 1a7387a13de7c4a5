#pragma once

namespace VnInit {
// Tag of the resource-management package.
struct resmgt {};
} // namespace VnInit
