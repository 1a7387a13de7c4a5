#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

// What a library says of its own build.
class VN_EXPORT InBuildInfo {
public:
    virtual ~InBuildInfo();
    virtual std::string getProductName() const = 0;
    virtual std::string getLibraryName() const = 0;
    virtual int getYear() const = 0;
    virtual std::string getVersionText() const = 0;
    virtual std::string getSuffix() const = 0;
    virtual int getMajorVersion() const = 0;
    virtual int getMinorVersion() const = 0;
    virtual int getReleaseStage() const = 0;
    virtual int getBuildNumber() const = 0;
    virtual std::string getBuildDate() const = 0;
    virtual std::string getBuildConfiguration() const = 0;

    // "<library> <version><suffix> (<product>, build <n>, <date>, <configuration>)"
    std::string describe() const;
    // The descriptions of every registered library, in order of library name, joined by "; ".
    static std::string getBuildInformationString();
};

// The registry of build information, one entry per library name. Safe from any thread.
class VN_EXPORT InBuildInfoUtil {
public:
    // Replaces an entry of the same library name.
    static void registerInfo(OPtr<InBuildInfo> info);
    static bool unregisterInfo(std::string const& libraryName);
    // Null when the library has not registered.
    static InBuildInfo const* findInfo(std::string const& libraryName);
    // The entry registered last and still there; null when none.
    static InBuildInfo const* getLastRegisteredInfo();
    static std::vector<std::string> getLibraryNames();
};

// The build information of the application above the libraries, which it gives at its start.
class VN_EXPORT InBuildInfoMgr {
public:
    // Takes ownership; null takes it away.
    static void setAppInfo(OPtr<InBuildInfo> info);
    // Null until the application has given its own.
    static InBuildInfo const* getAppInfo();
};

} // namespace Vn
