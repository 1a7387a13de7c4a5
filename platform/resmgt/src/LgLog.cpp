#include "LgLog.h"
#include "ExBase.h"

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

namespace Vn {

LgMajorGroup& LgMajorGroup::getInstanceForName(char const* name) {
    static std::mutex lock;
    static auto* groups = new std::map<std::string, LgMajorGroup*>;
    std::lock_guard g(lock);
    auto& slot = (*groups)[name ? name : ""];
    if (!slot)
        slot = new LgMajorGroup(name ? name : "");
    return *slot;
}

namespace {
std::uint32_t initialLevels(std::string const& major, std::string const& minor) {
    std::string var = "VN_LOG_" + major + "_" + minor;
    char const* v = std::getenv(var.c_str());
    if (!v || !*v)
        return LgMinorGroup::kDefaultLevels;
    char* end = nullptr;
    unsigned long n = std::strtoul(v, &end, 0);
    if (*end != '\0' || n > 0x3ff)
        return LgMinorGroup::kDefaultLevels;
    return static_cast<std::uint32_t>(n);
}
} // namespace

LgMinorGroup::LgMinorGroup(LgMajorGroup& major, char const* name)
    : _major(major), _name(name ? name : ""), _levels(initialLevels(major.getName(), _name)) {}

std::string LgEntry::format() const {
    return major + "." + minor + "[" + std::to_string(level) + "]: " + text;
}

LgQueue::~LgQueue() = default;

namespace {
void fillHeader(LgEntry& e, LgMinorGroup const& group, int level) {
    e.major = group.getMajor().getName();
    e.minor = group.getName();
    e.level = level;
}
} // namespace

void LgQueue::init(Entry& e, LgMinorGroup const& group, int level) {
    fillHeader(e._entry, group, level);
}

LgEntry LgQueue::take(Entry& e) {
    e._entry.text = e._stream.str();
    return std::move(e._entry);
}

namespace {

// The logger: one queue, one thread, one output. Kept for the life of the process so that
// statements in static destructors of other libraries still find it.
class Logger final : public LgQueue {
public:
    std::unique_ptr<Entry> reserveEntry(LgMinorGroup const& group, int level) override {
        auto e = std::make_unique<Entry>();
        init(*e, group, level);
        return e;
    }

    void addEntry(std::unique_ptr<Entry> entry) override {
        LgEntry e = take(*entry);
        {
            std::lock_guard g(_lock);
            _pending.push_back(std::move(e));
        }
        _wake.notify_one();
    }

    void start() {
        std::lock_guard g(_lock);
        if (_thread.joinable())
            return;
        _stopping = false;
        _thread = std::thread([this] { run(); });
        _running.store(true, std::memory_order_release);
    }

    void stop() {
        std::thread t;
        {
            std::lock_guard g(_lock);
            if (!_thread.joinable())
                return;
            _running.store(false, std::memory_order_release);
            _stopping = true;
            t = std::move(_thread);
        }
        _wake.notify_one();
        t.join();
    }

    bool isRunning() const { return _running.load(std::memory_order_acquire); }

    bool write(LgEntry const& e) {
        std::lock_guard g(_outputLock);
        if (!_output)
            return false;
        _output(e);
        return true;
    }

    LgLog::Output setOutput(LgLog::Output o) {
        std::lock_guard g(_outputLock);
        std::swap(o, _output);
        return o;
    }

private:
    void run() {
        std::unique_lock g(_lock);
        for (;;) {
            _wake.wait(g, [this] { return _stopping || !_pending.empty(); });
            while (!_pending.empty()) {
                LgEntry e = std::move(_pending.front());
                _pending.pop_front();
                g.unlock();
                if (!write(e))
                    ExStdout::printAtomically(e.format());
                g.lock();
            }
            if (_stopping)
                return;
        }
    }

    std::mutex _lock;
    std::condition_variable _wake;
    std::deque<LgEntry> _pending;
    std::thread _thread;
    bool _stopping = false;
    std::atomic<bool> _running{false};
    std::mutex _outputLock;
    LgLog::Output _output;
};

Logger& logger() {
    static Logger* l = new Logger;
    return *l;
}

} // namespace

LgQueue* LgLog::getQueue() {
    return logger().isRunning() ? &logger() : nullptr;
}
bool LgLog::outputEntry(LgEntry const& entry) {
    return logger().write(entry);
}
LgLog::Output LgLog::setOutput(Output output) {
    return logger().setOutput(std::move(output));
}
void LgLog::startLogger() {
    logger().start();
}
void LgLog::stopLogger() {
    logger().stop();
}

LgStatement::LgStatement(LgMinorGroup const& group, int level)
    : _group(group), _level(level), _queue(LgLog::getQueue()) {
    if (_queue)
        _entry = _queue->reserveEntry(group, level);
}

std::ostream& LgStatement::stream() {
    return _entry ? _entry->getStream() : _local;
}

LgStatement::~LgStatement() {
    try {
        if (_entry) {
            _queue->addEntry(std::move(_entry));
            return;
        }
        LgEntry e;
        fillHeader(e, _group, _level);
        e.text = _local.str();
        if (!LgLog::outputEntry(e))
            ExStdout::printAtomically(e.format());
    } catch (...) {
        // A log line is never worth a failure of the code that wrote it.
    }
}

} // namespace Vn
