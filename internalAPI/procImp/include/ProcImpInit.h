#pragma once

namespace VnInit {
// Tag of the procImp package.
struct procImp {};
} // namespace VnInit
