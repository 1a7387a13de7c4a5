#pragma once

#include "LiDate.h"
#include "OPtr.h"
#include "OsFilePath.h"
#include "VnExport.h"

#include <list>
#include <string>

namespace Vn {

// What the user has chosen, kept by the application from one run to the next. The application
// supplies the object at its start; the library reads the auto-key choice and the stored
// settings of video preview devices.
class VN_EXPORT PiUserSettings {
public:
    // A project of the recent list. Entries are ordered by date and are equal when their
    // paths or their dates are: two entries of one moment are one entry, as are two of one
    // project. That is no equivalence, so an entry is never a key of a map or a set.
    class VN_EXPORT ProjectListEntry {
    public:
        ProjectListEntry() = default;
        ProjectListEntry(OsFilePath const& projectPath, LiDate const& date)
            : _projectPath(projectPath), _date(date) {}

        OsFilePath const& getProjectPath() const noexcept { return _projectPath; }
        LiDate const& getDate() const noexcept { return _date; }

        bool operator<(ProjectListEntry const& o) const noexcept { return _date < o._date; }
        bool operator==(ProjectListEntry const& o) const noexcept {
            return _projectPath == o._projectPath || _date == o._date;
        }

    private:
        OsFilePath _projectPath;
        LiDate _date;
    };
    // `sort` orders it oldest first; `unique` and `remove` use the equality above.
    using ProjectList = std::list<ProjectListEntry>;

    PiUserSettings(PiUserSettings const&) = delete;
    PiUserSettings& operator=(PiUserSettings const&) = delete;
    virtual ~PiUserSettings();

    // Raises InSingletonEx::ExNotInitialized before the application gave its object.
    static PiUserSettings& getInstance();
    static bool isInitialized();

    // Whether changing an animated value sets a key at the current time.
    virtual bool getAutoKey() const = 0;
    virtual void setAutoKey(bool autoKey) = 0;

    // The settings a video preview device handed out last, by device name; empty when none.
    virtual std::string getVideoDeviceSettings(std::string const& deviceName) const = 0;
    virtual void setVideoDeviceSettings(std::string const& deviceName,
                                        std::string const& settings) = 0;

    // The projects opened last, the most recent first.
    virtual ProjectList getRecentProjects() const = 0;
    // Puts the project at the head of the list, once.
    virtual void addRecentProject(OsFilePath const& projectPath, LiDate const& date) = 0;
    virtual void removeRecentProject(OsFilePath const& projectPath) = 0;

protected:
    PiUserSettings() = default;
    // Takes the application's object: InSingletonEx::ExAlreadyInitialized when one is there.
    static void initialize(OPtr<PiUserSettings> settings);
    static void finalize();
};

} // namespace Vn
