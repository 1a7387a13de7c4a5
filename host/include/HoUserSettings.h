#pragma once

#include "ExBase.h"
#include "OsFilePath.h"
#include "PiUserSettings.h"
#include "VnExport.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace Vn {

// The application's user settings, kept in an XML file of the user's configuration folder
// and saved through the atomic save at each change. `install` puts them in place of
// PiUserSettings at the host's start; a file that cannot be read leaves the defaults.
class VN_EXPORT HoUserSettings final : public PiUserSettings {
public:
    // The recent list keeps this many projects.
    static constexpr std::size_t kMaxRecentProjects = 10;

    // What the file holds.
    struct VN_EXPORT Values {
        bool autoKey = false;
        std::map<std::string, std::string> videoDevices;
        // The most recent first.
        ProjectList recentProjects;
    };

    // $VN_USER_SETTINGS_FILE when set; else settings.xml in "vn" under $XDG_CONFIG_HOME, or
    // under $HOME/.config; an empty path when neither is known.
    static OsFilePath getDefaultPath();

    // Reads the text of a settings file; `fileName` names it in errors. Raises ExBase naming
    // the file and the line for text that is not such a file.
    static Values parse(std::string_view text, std::string const& fileName);
    static std::string format(Values const& values);

    // Settings of a file; a missing file gives the defaults. Raises as `parse` does, or
    // OsFileError when the file cannot be read.
    static OPtrRet<HoUserSettings> load(OsFilePath const& path);

    // Makes these settings the process's PiUserSettings, read from the file. A file that
    // cannot be read is logged and the defaults take its place (it is not overwritten until
    // a setting changes); the failure is handed back, null when there was none.
    static OPtrRet<ExBase> install(OsFilePath const& path = getDefaultPath());
    // Takes them away again; nothing when none were installed.
    static void uninstall();

    // The defaults, to be kept at the path.
    explicit HoUserSettings(OsFilePath path);
    HoUserSettings(OsFilePath path, Values values);

    OsFilePath const& getPath() const noexcept { return _path; }
    Values const& getValues() const noexcept { return _values; }
    // Writes the file; raises OsFileError. Nothing is written for an empty path.
    void save() const;

    bool getAutoKey() const override { return _values.autoKey; }
    void setAutoKey(bool autoKey) override;
    std::string getVideoDeviceSettings(std::string const& deviceName) const override;
    void setVideoDeviceSettings(std::string const& deviceName,
                                std::string const& settings) override;
    ProjectList getRecentProjects() const override { return _values.recentProjects; }
    void addRecentProject(OsFilePath const& projectPath, LiDate const& date) override;
    void removeRecentProject(OsFilePath const& projectPath) override;

private:
    OsFilePath _path;
    Values _values;
};

} // namespace Vn
