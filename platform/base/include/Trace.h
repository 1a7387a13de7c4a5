#pragma once

#include "VnExport.h"

#include <atomic>
#include <functional>
#include <string>

namespace Vn {

// A named trace channel. Level 0 is off; a message of level n is written when n is at most the
// channel's level. Channels take their level from VN_TRACE_<name> when made.
class VN_EXPORT Trace {
public:
    enum : int { MainTraceLevel = 1, DetailTraceLevel = 2 };

    explicit Trace(char const* name);
    Trace(Trace const&) = delete;
    Trace& operator=(Trace const&) = delete;
    ~Trace();

    bool isEnabled(int level) const noexcept {
        return level > 0 && level <= _level.load(std::memory_order_relaxed);
    }
    void setLevel(int level) noexcept { _level.store(level, std::memory_order_relaxed); }
    int getLevel() const noexcept { return _level.load(std::memory_order_relaxed); }
    std::string const& getName() const noexcept { return _name; }
    void log(int level, std::string const& text) const;

    // Marks a scope: a line on entry and one on exit, indented by the thread's nesting.
    class VN_EXPORT Entry {
    public:
        Entry(Trace const& trace, int level, char const* name, char const* file, int line);
        Entry(Entry const&) = delete;
        Entry& operator=(Entry const&) = delete;
        ~Entry();

    private:
        Trace const* _trace; // null when the level was off
        int _level;
        char const* _name;
    };

private:
    std::string _name;
    std::atomic<int> _level;
};

// Where trace lines go; stderr unless an output is set.
class VN_EXPORT TraceManager {
public:
    using Output = std::function<void(std::string const&)>;
    static TraceManager& getInstance();
    Output setOutput(Output output);
    void write(std::string const& line);

private:
    TraceManager() = default;
    Output _output;
};

} // namespace Vn

#define VN_TRACE_SCOPE(trace, level, name)                                                         \
    ::Vn::Trace::Entry VN_XGLUE(vnTraceEntry_, __LINE__)(trace, level, name, __FILE__, __LINE__)
