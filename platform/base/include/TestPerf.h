#pragma once

#include "ExBase.h"
#include "OPtr.h"
#include "VnExport.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace Vn {

// A measurement program: it is set up from named options, run some times, and reports the time
// of the timed part of each run.
class VN_EXPORT TestPerfBase {
public:
    using Options = std::map<std::string, std::string>;

    // A bad or missing option; the message says which. A driver prints it with the usage.
    class VN_EXPORT ExUsageError : public ExBase {
    public:
        ExUsageError(char const* file, int line, std::string message);
        ~ExUsageError() override;
        VN_EX_CLONE_RAISE(ExUsageError)
    };

    struct ProfilerStats {
        int runs = 0;
        double totalSeconds = 0.0;
        double minSeconds = 0.0;
        double maxSeconds = 0.0;
    };

    // Times the parts between start and stop.
    class VN_EXPORT Profiler {
    public:
        void start();
        void stop();
        void reset() { _stats = {}; }
        ProfilerStats const& getStats() const { return _stats; }

    private:
        std::chrono::steady_clock::time_point _start;
        bool _running = false;
        ProfilerStats _stats;
    };

    explicit TestPerfBase(std::string name);
    virtual ~TestPerfBase();
    virtual std::string const& getName() const;
    virtual Options const& getOptions() const;
    virtual void run() = 0;
    virtual ProfilerStats getProfilerStats() const;
    // Lets go of what initialize made.
    virtual void cleanUp();
    // One line per option: "name : values : meaning".
    virtual std::string getUsage() const = 0;
    // Raises ExUsageError for a bad option.
    virtual void initialize(Options const& options);

protected:
    Profiler& getProfiler() { return _profiler; }

private:
    std::string _name;
    Options _options;
    Profiler _profiler;
};

// The measurement programs of the process, by name. Registered at package start.
class VN_EXPORT TestPerfRegistry {
public:
    using Factory = TestPerfBase* (*)();
    // A name may be registered once.
    static void registerProbe(std::string const& name, Factory factory);
    static void unregisterProbe(std::string const& name);
    // Null for an unknown name.
    static OPtr<TestPerfBase> create(std::string const& name);
    static std::vector<std::string> getNames();
};

} // namespace Vn
