#include "PiBrowserSchemes.h"

namespace Vn {

LiString const PiBrowserSchemes::FsScheme("File");
LiString const PiBrowserSchemes::DbScheme("Library");
LiString const PiBrowserSchemes::ConduitScheme("Conduit");
LiString const PiBrowserSchemes::PluginToolScheme("Tools");
LiString const PiBrowserSchemes::PluginViewScheme("Views");
LiString const PiBrowserSchemes::PicklistScheme("Pick List");
LiString const PiBrowserSchemes::BookmarkScheme("Bookmark");

} // namespace Vn
