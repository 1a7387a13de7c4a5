#pragma once

// Marks a class or function as part of a library's public face; everything else stays hidden.
#define VN_EXPORT __attribute__((visibility("default")))

#define VN_GLUE_(a, b) a##b
// Token pasting after macro expansion of both sides.
#define VN_XGLUE(a, b) VN_GLUE_(a, b)
