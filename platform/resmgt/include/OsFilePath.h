#pragma once

#include "LiDate.h"
#include "VnExport.h"

#include <string>
#include <string_view>

namespace Vn {

// A path of the file system, held as written, with "/" between its parts.
class VN_EXPORT OsFilePath {
public:
    // Whether a base name keeps the file's extension.
    enum BaseNameExtension : int { WITHOUT_EXTENSION = 0, WITH_EXTENSION = 1 };

    OsFilePath() = default;
    explicit OsFilePath(std::string path) : _path(std::move(path)) {}

    std::string const& getString() const noexcept { return _path; }
    bool isEmpty() const noexcept { return _path.empty(); }
    bool isAbsolute() const noexcept { return !_path.empty() && _path.front() == '/'; }
    // "/" for an absolute path, an empty path for a relative one.
    OsFilePath getRoot() const;
    // The path less its last part; the root stays the root, a bare name gives an empty path.
    OsFilePath getParent() const;
    // The last part, after any trailing "/" is dropped.
    std::string getFileName() const;
    // The last part, with or without what follows its last "." (a leading "." starts no
    // extension: ".hidden" has none).
    std::string getBaseName(BaseNameExtension extension = WITHOUT_EXTENSION) const;
    // What follows the last "." of the last part, without the "."; empty when there is none.
    std::string getExtension() const;
    // This path and the given part joined by one "/".
    OsFilePath append(std::string const& part) const;

    bool operator==(OsFilePath const&) const = default;

private:
    std::string _path;
};

// Types of the file layer: permissions.
class VN_EXPORT OsFileTypes {
public:
    // Access by owner, group and others, each a sum of READ, WRITE and EXECUTE. A folder that
    // may be read may also be searched.
    struct VN_EXPORT Permissions {
        enum : int { READ = 1, WRITE = 2, EXECUTE = 4 };
        Permissions(int owner, int group, int others);
        int owner, group, others;
        // As a POSIX mode; for a folder READ brings search access with it.
        unsigned toMode(bool folder) const noexcept;
    };
};

// Queries and changes of the file system.
class VN_EXPORT OsFsUtils {
public:
    // Whether something exists at the path, file or folder.
    static bool fileExists(OsFilePath const& path);
    static bool isFolder(OsFilePath const& path);
    // Makes every missing folder of the path's parent below `root`, with the permissions
    // (less the process's mask). Raises ExBase when the path does not lie under the root, when
    // a part of it is a file, or when a folder cannot be made; folders made before stay.
    static void createFilePath(OsFilePath const& path, OsFilePath const& root,
                               OsFileTypes::Permissions permissions);
    // False when there was no file to remove; any other failure raises OsFileError.
    static bool removeFile(OsFilePath const& path);
    // Replaces whatever stands at `to` in one step. Raises OsFileError.
    static void rename(OsFilePath const& from, OsFilePath const& to);
    // A second name of an existing file; fails when `newName` exists. Raises OsFileError.
    static void link(OsFilePath const& existing, OsFilePath const& newName);
    // The last modification of the file; raises OsFileError when it cannot be read, so also
    // for a missing file.
    static LiDate getLastModificationTime(OsFilePath const& path);
    // Puts the folder's entries (names made, renamed, removed) on the disk.
    static void fsyncFolder(OsFilePath const& folder);
    // The whole content of a file; raises OsFileError.
    static std::string readFile(OsFilePath const& path);
    // The one way of saving a file: writes a temporary beside the target, flushes, fsyncs,
    // closes with a check, renames it over the target and fsyncs the folder. On a failure
    // before the rename the temporary is removed and the target is as it was; every failure
    // raises OsFileError. An existing target's permissions pass to the new file.
    static void saveAtomically(OsFilePath const& target, std::string_view content);
};

} // namespace Vn
