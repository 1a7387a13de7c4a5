#pragma once

#include "VnExport.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

namespace Vn {

// A family of log groups, found by name; created once and kept for the life of the process.
class VN_EXPORT LgMajorGroup {
public:
    static LgMajorGroup& getInstanceForName(char const* name);
    std::string const& getName() const noexcept { return _name; }

private:
    explicit LgMajorGroup(std::string name) : _name(std::move(name)) {}
    std::string _name;
};

// One log group. Level n (0 the most severe, 9 the least) is on when bit 0x200 >> n is set in the
// group's word. Levels 0 to 2 are on by default; the variable VN_LOG_<major>_<minor> replaces
// the word when the group is made.
class VN_EXPORT LgMinorGroup {
public:
    static constexpr std::uint32_t kLevel0Bit = 0x200;
    static constexpr std::uint32_t kDefaultLevels = 0x200 | 0x100 | 0x80;

    LgMinorGroup(LgMajorGroup& major, char const* name);
    LgMinorGroup(LgMinorGroup const&) = delete;
    LgMinorGroup& operator=(LgMinorGroup const&) = delete;

    bool isOn(int level) const noexcept {
        return level >= 0 && level <= 9 &&
               (_levels.load(std::memory_order_relaxed) & (kLevel0Bit >> level)) != 0;
    }
    std::uint32_t getLevels() const noexcept { return _levels.load(std::memory_order_relaxed); }
    void setLevels(std::uint32_t levels) noexcept {
        _levels.store(levels, std::memory_order_relaxed);
    }
    LgMajorGroup& getMajor() const noexcept { return _major; }
    std::string const& getName() const noexcept { return _name; }

private:
    LgMajorGroup& _major;
    std::string _name;
    std::atomic<std::uint32_t> _levels;
};

// One logged line: its groups, level and text.
struct VN_EXPORT LgEntry {
    std::string major;
    std::string minor;
    int level = 0;
    std::string text;
    // "major.minor[level]: text"
    std::string format() const;
};

// Entries waiting for the logger thread. Safe from any thread.
class VN_EXPORT LgQueue {
public:
    class Entry {
    public:
        std::ostringstream& getStream() { return _stream; }

    private:
        friend class LgQueue;
        LgEntry _entry;
        std::ostringstream _stream;
    };

    virtual ~LgQueue();
    virtual std::unique_ptr<Entry> reserveEntry(LgMinorGroup const& group, int level) = 0;
    virtual void addEntry(std::unique_ptr<Entry> entry) = 0;

protected:
    static void init(Entry& e, LgMinorGroup const& group, int level);
    static LgEntry take(Entry& e);
};

// Where log lines go. With a logger running, entries are queued and written by its thread; with
// only an output installed, they are written by the calling thread; with neither, to stdout.
class VN_EXPORT LgLog {
public:
    using Output = std::function<void(LgEntry const&)>;

    // The queue when the logger runs, else null.
    static LgQueue* getQueue();
    // Writes through the installed output; false when none is installed.
    static bool outputEntry(LgEntry const& entry);

    // Installs (or, with an empty function, removes) the output. Returns the previous one.
    static Output setOutput(Output output);
    // Starts the logger thread that drains the queue into the output; stopLogger drains the
    // queue and joins it.
    static void startLogger();
    static void stopLogger();
};

// One log statement: gathers the text and sends it on destruction.
class VN_EXPORT LgStatement {
public:
    LgStatement(LgMinorGroup const& group, int level);
    LgStatement(LgStatement const&) = delete;
    LgStatement& operator=(LgStatement const&) = delete;
    ~LgStatement();
    std::ostream& stream();

private:
    LgMinorGroup const& _group;
    int _level;
    LgQueue* _queue;
    std::unique_ptr<LgQueue::Entry> _entry;
    std::ostringstream _local;
};

} // namespace Vn

// Declares and defines the process-wide pointer of a log group, null until the owning package
// creates the group: LgGroups::MinorLevel<Name>.
#define VN_LG_DECLARE_GROUP(Name)                                                                  \
    namespace Vn::LgGroups {                                                                       \
    extern VN_EXPORT ::Vn::LgMinorGroup* VN_XGLUE(MinorLevel, Name);                               \
    }
#define VN_LG_DEFINE_GROUP(Name)                                                                   \
    namespace Vn::LgGroups {                                                                       \
    ::Vn::LgMinorGroup* VN_XGLUE(MinorLevel, Name) = nullptr;                                      \
    }

// Logs `expr` (stream syntax) to a group at a level; the text is built only when the level is on.
#define VN_LOG(group, level, expr)                                                                 \
    do {                                                                                           \
        ::Vn::LgMinorGroup const& vnLogGroup_ = (group);                                           \
        if (vnLogGroup_.isOn(level)) {                                                             \
            ::Vn::LgStatement vnLogStatement_(vnLogGroup_, level);                                 \
            vnLogStatement_.stream() << expr;                                                      \
        }                                                                                          \
    } while (0)

// The same through a group pointer of LgGroups; nothing happens while the group does not exist.
#define VN_LOG_GROUP(Name, level, expr)                                                            \
    do {                                                                                           \
        if (::Vn::LgMinorGroup* vnLogGroupPtr_ = ::Vn::LgGroups::VN_XGLUE(MinorLevel, Name))       \
            VN_LOG(*vnLogGroupPtr_, level, expr);                                                  \
    } while (0)
