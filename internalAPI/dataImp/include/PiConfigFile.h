#pragma once

#include "OsFilePath.h"
#include "UPtr.h"
#include "VnExport.h"

namespace Vn {

class XmlDocument;

// The deployment's configuration document: found by its name (the setting
// "quoin::deployment::configFileName", alias "config:", $VN_CONFIG_FILE_NAME, "config.xml"),
// first as given, then in the "config" folder of the resources; loaded once.
class VN_EXPORT PiConfigFile {
public:
    // The "config" folder of the resources.
    static OsFilePath getConfigPath();
    // The document, owned here until the package stops. Raises ExBase with "Missing
    // configuration file." or "Invalid configuration file."; after a failure the next call
    // tries again.
    static UPtr<const XmlDocument> getXmlDocument();
    // Where the document was found; empty while none is loaded.
    static OsFilePath getLoadedPath();
    // Forgets the document; the next call loads it again. Run when the package stops.
    static void unload();
};

} // namespace Vn
