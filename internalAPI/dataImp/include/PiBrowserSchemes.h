#pragma once

#include "LiString.h"
#include "VnExport.h"

namespace Vn {

// The names of the schemes by which the application browses what it can open.
class VN_EXPORT PiBrowserSchemes {
public:
    static LiString const FsScheme;
    static LiString const DbScheme;
    static LiString const ConduitScheme;
    static LiString const PluginToolScheme;
    static LiString const PluginViewScheme;
    static LiString const PicklistScheme;
    static LiString const BookmarkScheme;
};

} // namespace Vn
