#pragma once

#include "VnExport.h"

#include <string>

namespace Vn {

// Folders of the installation.
class VN_EXPORT InPaths {
public:
    // Where the programs' resources lie: $VN_RESOURCES_DIR when set, else the folder of the
    // running program, so that an installation may move as a whole. Empty when neither is known.
    static std::string getResourcesDir();
};

} // namespace Vn
