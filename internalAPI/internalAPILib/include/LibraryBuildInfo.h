#pragma once

#include "InBuildInfo.h"

namespace Vn {

// The build of this library, registered when its last package starts.
class VN_EXPORT LibraryBuildInfo : public InBuildInfo {
public:
    static constexpr char const* kLibraryName = "libVninternalAPI";

    std::string getProductName() const override;
    std::string getLibraryName() const override;
    int getYear() const override;
    std::string getVersionText() const override;
    // "dev" at release stage 3, else empty.
    std::string getSuffix() const override;
    int getMajorVersion() const override;
    int getMinorVersion() const override;
    int getReleaseStage() const override;
    int getBuildNumber() const override;
    std::string getBuildDate() const override;
    std::string getBuildConfiguration() const override;
};

} // namespace Vn
