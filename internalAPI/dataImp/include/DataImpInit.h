#pragma once

namespace VnInit {
// Tag of the dataImp package.
struct dataImp {};
} // namespace VnInit
