#include "PiAutosaveUtil.h"

#include "OsFile.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <map>
#include <unistd.h>
#include <vector>

namespace Vn::PiAutosaveUtil {

namespace {

char const* const kAutosaveExtension = "qnautosave";
char const* const kBackupExtension = "qnbackup";

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Extensions by file extension in lower case; registered during start-up, on one thread.
std::multimap<std::string, RCShdPtr<Extension>>& registry() {
    static auto* r = new std::multimap<std::string, RCShdPtr<Extension>>;
    return *r;
}

void tell(OsFilePath const& path, void (Extension::*what)(OsFilePath const&)) {
    auto const run = registry().equal_range(lower(path.getExtension()));
    // A copy: an extension may register another while it is told.
    std::vector<RCShdPtr<Extension>> extensions;
    for (auto it = run.first; it != run.second; ++it)
        extensions.push_back(it->second);
    for (RCShdPtr<Extension> const& e : extensions)
        ((*e).*what)(path);
}

OsFilePath besideWith(OsFilePath const& path, char const* extension) {
    return path.isEmpty() ? OsFilePath() : OsFilePath(path.getString() + "." + extension);
}

// A free name beside the backup, where it waits until the revert is sure.
OsFilePath asideName(OsFilePath const& backup) {
    static std::atomic<unsigned> counter{0};
    for (;;) {
        OsFilePath p(backup.getString() + "." + std::to_string(::getpid()) + "-" +
                     std::to_string(counter.fetch_add(1)) + ".aside");
        if (!OsFsUtils::fileExists(p))
            return p;
    }
}

// A second name for the saved file; where the file system has no hard links, a copy put on
// the disk under that name.
void linkOrCopy(OsFilePath const& saved, OsFilePath const& backup) {
    try {
        OsFsUtils::link(saved, backup);
    } catch (OsFileError const& e) {
        int const error = e.getErrno();
        if (error != EXDEV && error != EPERM && error != ENOTSUP && error != EOPNOTSUPP &&
            error != EMLINK && error != ENOSYS)
            throw;
        try {
            OsFsUtils::saveAtomically(backup, OsFsUtils::readFile(saved));
        } catch (...) {
            // The copy may have its name already when only the folder's sync failed.
            try {
                OsFsUtils::removeFile(backup);
            } catch (...) {
            }
            throw;
        }
    }
}

// Runs an undo step; one that fails leaves the rest to run, since the failure being
// reported is the one that matters.
template <class F>
void undoStep(F&& f) noexcept {
    try {
        f();
    } catch (...) {
    }
}

} // namespace

Extension::~Extension() = default;

void initialize() {
    OsComponentTypes::registerExtensionForSpecialObjects(kAutosaveExtension);
    OsComponentTypes::registerExtensionForSpecialObjects(kBackupExtension);
}

void registerAutosaveExtension(std::string const& fileExtension,
                               RCShdPtr<Extension> const& extension) {
    registry().emplace(lower(fileExtension), extension);
}

OsFilePath getAutosavePathFor(OsFilePath const& path) {
    return besideWith(path, kAutosaveExtension);
}

OsFilePath getBackupPathFor(OsFilePath const& path) {
    return besideWith(path, kBackupExtension);
}

bool autosavedFileExistsFor(OsFilePath const& path, bool ignoreDates) {
    OsFilePath const autosave = getAutosavePathFor(path);
    if (!OsFsUtils::fileExists(autosave))
        return false;
    // Crash recovery must find the copy of a file that was never saved or was lost.
    if (!OsFsUtils::fileExists(path))
        return true;
    if (ignoreDates)
        return true;
    return OsDateUtil::compare(OsFsUtils::getLastModificationTime(autosave),
                               OsFsUtils::getLastModificationTime(path)) == 1;
}

bool backupFileExistsFor(OsFilePath const& path) {
    return OsFsUtils::fileExists(getBackupPathFor(path));
}

void removeAutosavedFileOf(OsFilePath const& path) {
    OsFilePath const autosave = getAutosavePathFor(path);
    if (!OsFsUtils::fileExists(autosave) || !OsFsUtils::removeFile(autosave))
        return;
    tell(path, &Extension::autosavedFileRemoved);
}

void removeBackupFileOf(OsFilePath const& path) {
    OsFilePath const backup = getBackupPathFor(path);
    if (!OsFsUtils::fileExists(backup) || !OsFsUtils::removeFile(backup))
        return;
    tell(path, &Extension::backupFileRemoved);
}

void revertToAutosavedFileOf(OsFilePath const& path) {
    OsFilePath const autosave = getAutosavePathFor(path);
    if (autosave.isEmpty() || !OsFsUtils::fileExists(autosave))
        return;
    OsFilePath const folder = path.getParent();
    if (!OsFsUtils::fileExists(path)) {
        OsFsUtils::rename(autosave, path);
        try {
            OsFsUtils::fsyncFolder(folder);
        } catch (...) {
            undoStep([&] { OsFsUtils::rename(path, autosave); });
            throw;
        }
        tell(path, &Extension::fileReverted);
        return;
    }

    // The old backup steps aside, the saved file gains the backup's name as a second one,
    // and only then does the copy take the saved file's name: every byte keeps a name.
    OsFilePath const backup = getBackupPathFor(path);
    OsFilePath aside;
    enum Step { NONE, LINKED, RENAMED } done = NONE;
    try {
        if (OsFsUtils::fileExists(backup)) {
            OsFilePath const free = asideName(backup);
            OsFsUtils::rename(backup, free);
            aside = free;
        }
        linkOrCopy(path, backup);
        done = LINKED;
        OsFsUtils::rename(autosave, path);
        done = RENAMED;
        OsFsUtils::fsyncFolder(folder);
        if (!aside.isEmpty())
            OsFsUtils::removeFile(aside);
    } catch (...) {
        if (done == RENAMED) {
            undoStep([&] { OsFsUtils::rename(path, autosave); });
            undoStep([&] { OsFsUtils::rename(backup, path); });
        } else if (done == LINKED) {
            undoStep([&] { OsFsUtils::removeFile(backup); });
        }
        if (!aside.isEmpty())
            undoStep([&] { OsFsUtils::rename(aside, backup); });
        undoStep([&] { OsFsUtils::fsyncFolder(folder); });
        throw;
    }
    tell(path, &Extension::fileReverted);
}

} // namespace Vn::PiAutosaveUtil
