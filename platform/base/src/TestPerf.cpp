#include "TestPerf.h"

#include "Assertions.h"
#include "LkLock.h"

#include <algorithm>

namespace Vn {

TestPerfBase::ExUsageError::ExUsageError(char const* file, int line, std::string message)
    : ExBase(file, line) {
    setReason(std::move(message));
}

TestPerfBase::ExUsageError::~ExUsageError() = default;

void TestPerfBase::Profiler::start() {
    VN_ASSERT(!_running);
    _running = true;
    _start = std::chrono::steady_clock::now();
}

void TestPerfBase::Profiler::stop() {
    auto const end = std::chrono::steady_clock::now();
    VN_ASSERT(_running);
    _running = false;
    double const s = std::chrono::duration<double>(end - _start).count();
    _stats.minSeconds = _stats.runs == 0 ? s : std::min(_stats.minSeconds, s);
    _stats.maxSeconds = std::max(_stats.maxSeconds, s);
    _stats.totalSeconds += s;
    ++_stats.runs;
}

TestPerfBase::TestPerfBase(std::string name) : _name(std::move(name)) {}
TestPerfBase::~TestPerfBase() = default;

std::string const& TestPerfBase::getName() const {
    return _name;
}

TestPerfBase::Options const& TestPerfBase::getOptions() const {
    return _options;
}

TestPerfBase::ProfilerStats TestPerfBase::getProfilerStats() const {
    return _profiler.getStats();
}

void TestPerfBase::cleanUp() {}

void TestPerfBase::initialize(Options const& options) {
    _options = options;
    _profiler.reset();
}

namespace {
struct Registry {
    LkLock lock{"TestPerfRegistry"};
    std::map<std::string, TestPerfRegistry::Factory> factories;
};
Registry& registry() {
    static Registry r;
    return r;
}
} // namespace

void TestPerfRegistry::registerProbe(std::string const& name, Factory factory) {
    VN_ASSERT(factory != nullptr);
    Registry& r = registry();
    LkGuard g(r.lock);
    bool const added = r.factories.emplace(name, factory).second;
    VN_ASSERT(added);
}

void TestPerfRegistry::unregisterProbe(std::string const& name) {
    Registry& r = registry();
    LkGuard g(r.lock);
    r.factories.erase(name);
}

OPtr<TestPerfBase> TestPerfRegistry::create(std::string const& name) {
    Factory f = nullptr;
    {
        Registry& r = registry();
        LkGuard g(r.lock);
        auto const it = r.factories.find(name);
        if (it != r.factories.end())
            f = it->second;
    }
    return OPtr<TestPerfBase>(f ? f() : nullptr);
}

std::vector<std::string> TestPerfRegistry::getNames() {
    Registry& r = registry();
    LkGuard g(r.lock);
    std::vector<std::string> names;
    for (auto const& [name, f] : r.factories)
        names.push_back(name);
    return names;
}

} // namespace Vn
