#include "Trace.h"
#include "VnExport.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace Vn {

namespace {
thread_local int t_depth = 0;
std::mutex& outputLock() {
    static std::mutex m;
    return m;
}

int initialLevel(std::string const& name) {
    std::string var = "VN_TRACE_" + name;
    char const* v = std::getenv(var.c_str());
    return v ? std::atoi(v) : 0;
}
} // namespace

Trace::Trace(char const* name) : _name(name ? name : ""), _level(initialLevel(_name)) {}
Trace::~Trace() = default;

void Trace::log(int level, std::string const& text) const {
    if (!isEnabled(level))
        return;
    TraceManager::getInstance().write(std::string(static_cast<std::size_t>(t_depth) * 2, ' ') +
                                      _name + ": " + text);
}

Trace::Entry::Entry(Trace const& trace, int level, char const* name, char const* file, int line)
    : _trace(trace.isEnabled(level) ? &trace : nullptr), _level(level), _name(name) {
    if (!_trace)
        return;
    _trace->log(_level, std::string("> ") + name + " (" + file + ":" + std::to_string(line) + ")");
    ++t_depth;
}

Trace::Entry::~Entry() {
    if (!_trace)
        return;
    --t_depth;
    try {
        _trace->log(_level, std::string("< ") + _name);
    } catch (...) {
    }
}

TraceManager& TraceManager::getInstance() {
    static auto* instance = new TraceManager;
    return *instance;
}

TraceManager::Output TraceManager::setOutput(Output output) {
    std::lock_guard g(outputLock());
    std::swap(output, _output);
    return output;
}

void TraceManager::write(std::string const& line) {
    std::lock_guard g(outputLock());
    if (_output) {
        _output(line);
        return;
    }
    std::fprintf(stderr, "%s\n", line.c_str());
}

} // namespace Vn
