#pragma once

#include "LkCounter.h"
#include "OsFilePath.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The autosaved copy ("<path>.qnautosave") and the backup ("<path>.qnbackup") that stand
// beside a saved file. File types with companion files keep them in step through
// extensions registered for their file extension. Failures of the file layer propagate.
namespace PiAutosaveUtil {

// Told of changes to the files beside a saved file; each is given the saved file's path.
class VN_EXPORT Extension : public RCBase<LkCounter<int>> {
public:
    ~Extension() override;
    virtual void fileReverted(OsFilePath const& path) = 0;
    virtual void autosavedFileRemoved(OsFilePath const& path) = 0;
    virtual void backupFileRemoved(OsFilePath const& path) = 0;
};

// Makes the file layer treat autosaved copies and backups as parts of their saved file.
VN_EXPORT void initialize();
// Several extensions may serve one file type; they are told in the order of registration.
VN_EXPORT void registerAutosaveExtension(std::string const& fileExtension,
                                         RCShdPtr<Extension> const& extension);

// Empty for an empty path.
VN_EXPORT OsFilePath getAutosavePathFor(OsFilePath const& path);
VN_EXPORT OsFilePath getBackupPathFor(OsFilePath const& path);

// Whether an autosaved copy is worth offering: it exists and, unless dates are ignored, is
// later than the saved file. A missing saved file counts as older than any copy.
VN_EXPORT bool autosavedFileExistsFor(OsFilePath const& path, bool ignoreDates);
VN_EXPORT bool backupFileExistsFor(OsFilePath const& path);

// Each removes its file, then tells the file type's extensions; nothing when there is none.
VN_EXPORT void removeAutosavedFileOf(OsFilePath const& path);
VN_EXPORT void removeBackupFileOf(OsFilePath const& path);

// Puts the autosaved copy in the saved file's place and keeps the old saved file as the
// backup, then tells the extensions. At no moment is the old file or the copy under no name,
// and a failure undoes what was done before raising. Nothing when there is no copy.
VN_EXPORT void revertToAutosavedFileOf(OsFilePath const& path);

} // namespace PiAutosaveUtil

} // namespace Vn
