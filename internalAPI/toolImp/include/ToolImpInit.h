#pragma once

namespace VnInit {
// Tag of the toolImp package.
struct toolImp {};
} // namespace VnInit
