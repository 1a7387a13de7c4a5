#pragma once

#include "ExBase.h"
#include "LiDate.h"
#include "OsFilePath.h"
#include "VnExport.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

namespace Vn {

// A file operation that failed: the path, the operation ("write", "rename", ...) and the
// system's error. The reason reads: cannot, the operation, the quoted path, a colon and strerror.
class VN_EXPORT OsFileError : public ExBase {
public:
    OsFileError(char const* file, int line, std::string operation, std::string path, int error,
                std::string detail = {});
    ~OsFileError() override;
    VN_EX_CLONE_RAISE(OsFileError)

    std::string const& getOperation() const noexcept { return _operation; }
    std::string const& getPath() const noexcept { return _path; }
    int getErrno() const noexcept { return _errno; }

private:
    std::string _operation;
    std::string _path;
    int _errno;
};

// The seam through which tests make file operations fail. Off by default, and then each
// operation pays one relaxed atomic load. Armed, it counts the calls of each operation and
// of all together (the steps); a rule makes the nth call of an operation fail with an errno
// without touching the file system, and a step may raise a signal instead, so that a child
// process can die at an exact point of a save.
class VN_EXPORT OsFaultInjector {
public:
    enum Operation : int { OPEN, WRITE, FLUSH, FSYNC, CLOSE, RENAME, LINK, UNLINK, NB_OPERATIONS };
    static char const* getName(Operation op) noexcept;

    // Starts counting from 0 with no rule.
    static void arm();
    // The nth call (from 1) of the operation after arming fails with `error`. Arms when off.
    static void failNth(Operation op, int nth, int error);
    // The step-th operation of any kind raises the signal before it runs. Arms when off.
    static void raiseSignalAtStep(int step, int signal);
    // Off again: no counting, no rule.
    static void disarm();

    static int getCount(Operation op);
    static int getStepCount();

    // 0 to go on, or the errno the operation must fail with.
    static int check(Operation op) noexcept {
        if (!s_armed.load(std::memory_order_relaxed)) [[likely]]
            return 0;
        return checkArmed(op);
    }

private:
    static int checkArmed(Operation op) noexcept;
    static std::atomic<bool> s_armed;
};

// Owns a descriptor and closes it, unchecked, when it goes out of scope: the path of a
// failure. A close whose result matters goes through OsFile::close.
class VN_EXPORT OsFileDescriptor {
public:
    OsFileDescriptor() noexcept = default;
    explicit OsFileDescriptor(int fd) noexcept : _fd(fd) {}
    OsFileDescriptor(OsFileDescriptor const&) = delete;
    OsFileDescriptor& operator=(OsFileDescriptor const&) = delete;
    ~OsFileDescriptor();
    // Closes the one held, unchecked, and takes the other.
    void reset(int fd = -1) noexcept;

    int get() const noexcept { return _fd; }
    bool isOpen() const noexcept { return _fd >= 0; }
    int release() noexcept {
        int const fd = _fd;
        _fd = -1;
        return fd;
    }

private:
    int _fd = -1;
};

// A file written through a buffer, each step checked: every failure raises OsFileError.
class VN_EXPORT OsFile {
public:
    enum OpenMode {
        // Creates the file, and fails when something stands at the path already.
        CREATE_NEW,
        // Creates or empties the file.
        CREATE_OR_TRUNCATE,
    };

    // Held around changes of descriptors that must not interleave across threads, such as
    // closing a stream whose number another thread could be handed at once. Nests.
    class VN_EXPORT FileDescriptorManipGuard {
    public:
        FileDescriptorManipGuard();
        FileDescriptorManipGuard(FileDescriptorManipGuard const&) = delete;
        FileDescriptorManipGuard& operator=(FileDescriptorManipGuard const&) = delete;
        ~FileDescriptorManipGuard();
    };

    OsFile() = default;
    OsFile(OsFile const&) = delete;
    OsFile& operator=(OsFile const&) = delete;
    // Closes without a check when still open; what was not flushed is lost.
    ~OsFile();

    // `permissions` as a POSIX mode, less the process's mask.
    void open(OsFilePath const& path, OpenMode mode, unsigned permissions = 0666);
    void write(std::string_view bytes);
    // Hands the buffer to the system.
    void flush();
    // Asks the system to put what it was handed on the disk; flush first.
    void fsync();
    // Flushes, then closes; the file is closed even when this raises.
    void close();

    bool isOpen() const noexcept { return _fd.isOpen(); }
    int getDescriptor() const noexcept { return _fd.get(); }
    OsFilePath const& getPath() const noexcept { return _path; }

private:
    OsFilePath _path;
    OsFileDescriptor _fd;
    std::string _buffer;
};

// Comparison of file dates.
class VN_EXPORT OsDateUtil {
public:
    // -1 when a is earlier than b, 0 when they are the same moment, 1 when a is later.
    static int compare(LiDate const& a, LiDate const& b) noexcept;
};

// The extensions of special objects: files that belong to the saved file beside them, whose
// name they extend ("shot.cmp.qnautosave" belongs to "shot.cmp"). Extensions are compared in
// lower case. Registered during start-up.
class VN_EXPORT OsComponentTypes {
public:
    // Without the dot; registering one twice changes nothing.
    static void registerExtensionForSpecialObjects(std::string const& extension);
    static bool isSpecialObject(OsFilePath const& path);
    // The file a special object belongs to; an empty path for any other file.
    static OsFilePath getOwnerOf(OsFilePath const& path);
};

} // namespace Vn
