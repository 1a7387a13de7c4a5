#pragma once

namespace VnInit {
// Tag of the imageImp package.
struct imageImp {};
} // namespace VnInit
