#pragma once

namespace VnInit {
// Tag of the videoPreviewBase package.
struct videoPreviewBase {};
} // namespace VnInit
