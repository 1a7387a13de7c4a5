#include "LibraryBuildInfo.h"
#include "VnBuildConfig.h"

namespace Vn {

std::string LibraryBuildInfo::getProductName() const {
    return VN_PRODUCT_NAME;
}
std::string LibraryBuildInfo::getLibraryName() const {
    return kLibraryName;
}
int LibraryBuildInfo::getYear() const {
    return VN_BUILD_YEAR;
}
std::string LibraryBuildInfo::getVersionText() const {
    return VN_VERSION_TEXT;
}
std::string LibraryBuildInfo::getSuffix() const {
    return getReleaseStage() == 3 ? "dev" : "";
}
int LibraryBuildInfo::getMajorVersion() const {
    return VN_VERSION_MAJOR;
}
int LibraryBuildInfo::getMinorVersion() const {
    return VN_VERSION_MINOR;
}
int LibraryBuildInfo::getReleaseStage() const {
    return VN_RELEASE_STAGE;
}
int LibraryBuildInfo::getBuildNumber() const {
    return VN_BUILD_NUMBER;
}
std::string LibraryBuildInfo::getBuildDate() const {
    return VN_BUILD_DATE;
}
std::string LibraryBuildInfo::getBuildConfiguration() const {
    return VN_BUILD_CONFIGURATION;
}

} // namespace Vn
