#include "OsFile.h"

#include "Assertions.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <mutex>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Vn {

// ---- errors

OsFileError::OsFileError(char const* file, int line, std::string operation, std::string path,
                         int error, std::string detail)
    : ExBase(file, line), _operation(std::move(operation)), _path(std::move(path)), _errno(error) {
    setReason("cannot " + _operation + " \"" + _path + "\"" + detail + ": " + std::strerror(error));
}
OsFileError::~OsFileError() = default;

// The error is read first: building the texts may change errno.
#define VN_THROW_FILE(operation, path, error, detail)                                              \
    do {                                                                                           \
        int const vnError_ = (error);                                                              \
        throw OsFileError(__FILE__, __LINE__, operation, path, vnError_, detail);                  \
    } while (0)

// ---- fault seam

std::atomic<bool> OsFaultInjector::s_armed{false};

namespace {
struct FaultRule {
    OsFaultInjector::Operation op;
    int nth;
    int error;
};
struct FaultState {
    std::mutex lock;
    int counts[OsFaultInjector::NB_OPERATIONS] = {};
    int steps = 0;
    std::vector<FaultRule> rules;
    int signalStep = 0;
    int signal = 0;
};
FaultState& faults() {
    static FaultState* s = new FaultState;
    return *s;
}
} // namespace

char const* OsFaultInjector::getName(Operation op) noexcept {
    static constexpr char const* names[] = {"open",  "write",  "flush", "fsync",
                                            "close", "rename", "link",  "unlink"};
    return op >= 0 && op < NB_OPERATIONS ? names[op] : "?";
}

void OsFaultInjector::arm() {
    FaultState& f = faults();
    std::lock_guard<std::mutex> guard(f.lock);
    std::fill(std::begin(f.counts), std::end(f.counts), 0);
    f.steps = 0;
    f.rules.clear();
    f.signalStep = 0;
    f.signal = 0;
    s_armed.store(true, std::memory_order_relaxed);
}

void OsFaultInjector::failNth(Operation op, int nth, int error) {
    VN_ASSERT(op >= 0 && op < NB_OPERATIONS && nth > 0 && error > 0);
    if (!s_armed.load(std::memory_order_relaxed))
        arm();
    FaultState& f = faults();
    std::lock_guard<std::mutex> guard(f.lock);
    f.rules.push_back({op, nth, error});
}

void OsFaultInjector::raiseSignalAtStep(int step, int signal) {
    VN_ASSERT(step > 0 && signal > 0);
    if (!s_armed.load(std::memory_order_relaxed))
        arm();
    FaultState& f = faults();
    std::lock_guard<std::mutex> guard(f.lock);
    f.signalStep = step;
    f.signal = signal;
}

void OsFaultInjector::disarm() {
    s_armed.store(false, std::memory_order_relaxed);
}

int OsFaultInjector::getCount(Operation op) {
    FaultState& f = faults();
    std::lock_guard<std::mutex> guard(f.lock);
    return op >= 0 && op < NB_OPERATIONS ? f.counts[op] : 0;
}

int OsFaultInjector::getStepCount() {
    FaultState& f = faults();
    std::lock_guard<std::mutex> guard(f.lock);
    return f.steps;
}

int OsFaultInjector::checkArmed(Operation op) noexcept {
    FaultState& f = faults();
    int signal = 0;
    int error = 0;
    {
        std::lock_guard<std::mutex> guard(f.lock);
        int const n = ++f.counts[op];
        if (++f.steps == f.signalStep)
            signal = f.signal;
        for (FaultRule const& r : f.rules)
            if (r.op == op && r.nth == n)
                error = r.error;
    }
    if (signal != 0)
        std::raise(signal);
    return error;
}

// ---- descriptors and files

OsFileDescriptor::~OsFileDescriptor() {
    if (_fd >= 0)
        ::close(_fd);
}

void OsFileDescriptor::reset(int fd) noexcept {
    if (_fd >= 0)
        ::close(_fd);
    _fd = fd;
}

namespace {
std::recursive_mutex& descriptorMutex() {
    static std::recursive_mutex* m = new std::recursive_mutex;
    return *m;
}
} // namespace

OsFile::FileDescriptorManipGuard::FileDescriptorManipGuard() {
    descriptorMutex().lock();
}

OsFile::FileDescriptorManipGuard::~FileDescriptorManipGuard() {
    descriptorMutex().unlock();
}

OsFile::~OsFile() = default;

void OsFile::open(OsFilePath const& path, OpenMode mode, unsigned permissions) {
    VN_ASSERT(!isOpen());
    _path = path;
    _buffer.clear();
    int const flags = O_WRONLY | O_CLOEXEC | O_CREAT | (mode == CREATE_NEW ? O_EXCL : O_TRUNC);
    if (int const e = OsFaultInjector::check(OsFaultInjector::OPEN))
        VN_THROW_FILE("open", path.getString(), e, std::string());
    int const fd = ::open(path.getString().c_str(), flags, permissions);
    if (fd < 0)
        VN_THROW_FILE("open", path.getString(), errno, std::string());
    _fd.reset(fd);
}

namespace {
constexpr std::size_t kBufferSize = 1 << 16;
} // namespace

void OsFile::write(std::string_view bytes) {
    VN_ASSERT(isOpen());
    if (_buffer.size() + bytes.size() > kBufferSize)
        flush();
    if (bytes.size() >= kBufferSize) {
        _buffer.assign(bytes);
        flush();
        return;
    }
    _buffer.append(bytes);
}

void OsFile::flush() {
    VN_ASSERT(isOpen());
    if (int const e = OsFaultInjector::check(OsFaultInjector::FLUSH))
        VN_THROW_FILE("flush", _path.getString(), e, std::string());
    std::size_t done = 0;
    while (done < _buffer.size()) {
        if (int const e = OsFaultInjector::check(OsFaultInjector::WRITE))
            VN_THROW_FILE("write", _path.getString(), e, std::string());
        // In pieces of the buffer's size, so that a write of a large file is no exception.
        std::size_t const piece = std::min<std::size_t>(_buffer.size() - done, kBufferSize);
        ssize_t const n = ::write(_fd.get(), _buffer.data() + done, piece);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            VN_THROW_FILE("write", _path.getString(), errno, std::string());
        }
        done += static_cast<std::size_t>(n);
    }
    _buffer.clear();
}

void OsFile::fsync() {
    VN_ASSERT(isOpen());
    if (int const e = OsFaultInjector::check(OsFaultInjector::FSYNC))
        VN_THROW_FILE("fsync", _path.getString(), e, std::string());
    if (::fsync(_fd.get()) != 0)
        VN_THROW_FILE("fsync", _path.getString(), errno, std::string());
}

void OsFile::close() {
    VN_ASSERT(isOpen());
    if (!_buffer.empty())
        flush();
    int const fd = _fd.release();
    // The descriptor is gone whatever close says; a retry could close another file's.
    if (int const e = OsFaultInjector::check(OsFaultInjector::CLOSE)) {
        ::close(fd);
        VN_THROW_FILE("close", _path.getString(), e, std::string());
    }
    if (::close(fd) != 0)
        VN_THROW_FILE("close", _path.getString(), errno, std::string());
}

// ---- dates and special objects

int OsDateUtil::compare(LiDate const& a, LiDate const& b) noexcept {
    return a < b ? -1 : (b < a ? 1 : 0);
}

namespace {
std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}
struct SpecialExtensions {
    std::mutex lock;
    std::vector<std::string> extensions;
};
SpecialExtensions& specials() {
    static SpecialExtensions* s = new SpecialExtensions;
    return *s;
}
} // namespace

void OsComponentTypes::registerExtensionForSpecialObjects(std::string const& extension) {
    VN_ASSERT(!extension.empty() && extension.find('.') == std::string::npos);
    SpecialExtensions& s = specials();
    std::lock_guard<std::mutex> guard(s.lock);
    std::string const e = lower(extension);
    if (std::find(s.extensions.begin(), s.extensions.end(), e) == s.extensions.end())
        s.extensions.push_back(e);
}

bool OsComponentTypes::isSpecialObject(OsFilePath const& path) {
    return !getOwnerOf(path).isEmpty();
}

OsFilePath OsComponentTypes::getOwnerOf(OsFilePath const& path) {
    std::string const extension = lower(path.getExtension());
    if (extension.empty())
        return {};
    {
        SpecialExtensions& s = specials();
        std::lock_guard<std::mutex> guard(s.lock);
        if (std::find(s.extensions.begin(), s.extensions.end(), extension) == s.extensions.end())
            return {};
    }
    // The owner is a file with a name of its own: "x.qnautosave" alone is no special object.
    std::string const& text = path.getString();
    OsFilePath owner(text.substr(0, text.size() - extension.size() - 1));
    return owner.getFileName().empty() ? OsFilePath() : owner;
}

// ---- file system

bool OsFsUtils::removeFile(OsFilePath const& path) {
    if (path.isEmpty())
        return false;
    if (int const e = OsFaultInjector::check(OsFaultInjector::UNLINK))
        VN_THROW_FILE("remove", path.getString(), e, std::string());
    if (::unlink(path.getString().c_str()) == 0)
        return true;
    if (errno == ENOENT)
        return false;
    VN_THROW_FILE("remove", path.getString(), errno, std::string());
}

void OsFsUtils::rename(OsFilePath const& from, OsFilePath const& to) {
    std::string const detail = " to \"" + to.getString() + "\"";
    if (int const e = OsFaultInjector::check(OsFaultInjector::RENAME))
        VN_THROW_FILE("rename", from.getString(), e, detail);
    if (::rename(from.getString().c_str(), to.getString().c_str()) != 0)
        VN_THROW_FILE("rename", from.getString(), errno, detail);
}

void OsFsUtils::link(OsFilePath const& existing, OsFilePath const& newName) {
    std::string const detail = " as \"" + newName.getString() + "\"";
    if (int const e = OsFaultInjector::check(OsFaultInjector::LINK))
        VN_THROW_FILE("link", existing.getString(), e, detail);
    if (::link(existing.getString().c_str(), newName.getString().c_str()) != 0)
        VN_THROW_FILE("link", existing.getString(), errno, detail);
}

LiDate OsFsUtils::getLastModificationTime(OsFilePath const& path) {
    struct stat st {};
    if (::stat(path.getString().c_str(), &st) != 0)
        VN_THROW_FILE("read the date of", path.getString(), errno, std::string());
    return LiDate(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
}

void OsFsUtils::fsyncFolder(OsFilePath const& folder) {
    std::string const name = folder.isEmpty() ? std::string(".") : folder.getString();
    OsFileDescriptor fd(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.isOpen())
        VN_THROW_FILE("open the folder", name, errno, std::string());
    if (int const e = OsFaultInjector::check(OsFaultInjector::FSYNC))
        VN_THROW_FILE("fsync the folder", name, e, std::string());
    if (::fsync(fd.get()) != 0)
        VN_THROW_FILE("fsync the folder", name, errno, std::string());
}

std::string OsFsUtils::readFile(OsFilePath const& path) {
    std::ifstream in(path.getString(), std::ios::binary);
    if (!in.is_open())
        VN_THROW_FILE("open", path.getString(), errno ? errno : ENOENT, std::string());
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        VN_THROW_FILE("read", path.getString(), errno ? errno : EIO, std::string());
    return text.str();
}

namespace {
// A name beside the target that no other save picks: hidden, with the process and a counter.
OsFilePath temporaryBeside(OsFilePath const& target, unsigned attempt) {
    static std::atomic<unsigned> counter{0};
    auto const tick = static_cast<unsigned long long>(
        std::chrono::steady_clock::now().time_since_epoch().count());
    std::string const name = "." + target.getFileName() + "." + std::to_string(::getpid()) + "-" +
                             std::to_string(counter.fetch_add(1) + attempt) + "-" +
                             std::to_string(tick % 1000000) + ".tmp";
    OsFilePath const parent = target.getParent();
    return parent.isEmpty() && !target.isAbsolute() ? OsFilePath(name) : parent.append(name);
}
} // namespace

void OsFsUtils::saveAtomically(OsFilePath const& target, std::string_view content) {
    VN_ASSERT(!target.isEmpty());
    struct stat st {};
    bool const existed = ::stat(target.getString().c_str(), &st) == 0;

    OsFile file;
    OsFilePath temporary;
    for (unsigned attempt = 0;; ++attempt) {
        temporary = temporaryBeside(target, attempt);
        try {
            file.open(temporary, OsFile::CREATE_NEW);
            break;
        } catch (OsFileError const& e) {
            if (e.getErrno() != EEXIST || attempt == 16)
                throw;
        }
    }
    try {
        // The new file keeps the permissions the old one had; when that fails it has the
        // default ones, which loses nothing.
        if (existed)
            (void)::fchmod(file.getDescriptor(), st.st_mode & 07777);
        file.write(content);
        file.flush();
        file.fsync();
        file.close();
        rename(temporary, target);
    } catch (...) {
        // The failure being reported matters more than one of the clean-up.
        try {
            removeFile(temporary);
        } catch (ExBase const&) {
        }
        throw;
    }
    OsFilePath const folder = target.getParent();
    fsyncFolder(folder);
}

} // namespace Vn
