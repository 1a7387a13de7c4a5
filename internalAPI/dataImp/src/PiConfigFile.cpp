#include "PiConfigFile.h"

#include "DataImpVariables.h"
#include "ExBase.h"
#include "InPaths.h"
#include "XmlDocument.h"

#include <memory>

namespace Vn {

namespace {
std::unique_ptr<XmlDocument> s_document;
OsFilePath s_path;
} // namespace

OsFilePath PiConfigFile::getConfigPath() {
    return OsFilePath(InPaths::getResourcesDir()).append("config");
}

UPtr<const XmlDocument> PiConfigFile::getXmlDocument() {
    if (s_document)
        return s_document.get();
    char const* name = getConfigFileNameSetting();
    OsFilePath path(name ? name : "");
    // A full path, or a file of the working folder, goes before the installed one.
    if (path.isEmpty() || !OsFsUtils::fileExists(path)) {
        path = getConfigPath().append(path.getString());
        if (!OsFsUtils::fileExists(path) || OsFsUtils::isFolder(path))
            VN_THROW_MSG(ExBase, "Missing configuration file.");
    }
    try {
        s_document = std::make_unique<XmlDocument>(XmlDocument::load(path.getString()));
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "Invalid configuration file. " + e.getReason());
    }
    s_path = path;
    return s_document.get();
}

OsFilePath PiConfigFile::getLoadedPath() {
    return s_document ? s_path : OsFilePath();
}

void PiConfigFile::unload() {
    s_document.reset();
    s_path = {};
}

} // namespace Vn
