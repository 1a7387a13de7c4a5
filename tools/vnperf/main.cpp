// vnperf: runs one of the library's measurement programs by name with its options, and prints
// the time of its timed part.
//
//   vnperf ScanlinePerf operation=BLUR radius=8 width=2048 height=2048 --repeat 10

#include "InBuildInfo.h"
#include "InPackageInit.h"
#include "IpTestPerf.h"
#include "TestPerf.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace {

struct PackagesStarted {
    PackagesStarted() { Vn::InInitMgr::getInstance().initialize(); }
    ~PackagesStarted() { Vn::InInitMgr::getInstance().finalize(); }
};

std::string knownProbes() {
    std::string s;
    for (std::string const& n : Vn::TestPerfRegistry::getNames())
        s += (s.empty() ? "" : ", ") + n;
    return s;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"vnperf: runs a measurement program of the library and prints its timings"};
    std::string name;
    std::vector<std::string> words;
    int repeat = 5;
    bool list = false;
    bool version = false;
    app.add_option("probe", name, "The program to run, e.g. ScanlinePerf or CompPerf");
    app.add_option("options", words, "The program's options, as key=value");
    app.add_option("--repeat", repeat, "How many timed runs")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_flag("--list", list, "List the programs and their options");
    app.add_flag("--version", version, "Print the library's build information, then stop");
    CLI11_PARSE(app, argc, argv);

    PackagesStarted started;
    if (version) {
        std::printf("%s\n", Vn::InBuildInfo::getBuildInformationString().c_str());
        return 0;
    }
    if (list || name.empty()) {
        for (std::string const& n : Vn::TestPerfRegistry::getNames()) {
            Vn::OPtr<Vn::TestPerfBase> p = Vn::TestPerfRegistry::create(n);
            std::printf("%s\n%s%s\n", n.c_str(), p->getUsage().c_str(),
                        Vn::IpTestPerf::getTileUsage().c_str());
        }
        return name.empty() && !list ? 2 : 0;
    }
    Vn::OPtr<Vn::TestPerfBase> probe = Vn::TestPerfRegistry::create(name);
    if (!probe) {
        std::fprintf(stderr, "vnperf: no program named '%s' (known: %s)\n", name.c_str(),
                     knownProbes().c_str());
        return 2;
    }
    Vn::TestPerfBase::Options options;
    std::string shown = name;
    for (std::string const& w : words) {
        std::size_t const eq = w.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::fprintf(stderr, "vnperf: '%s' is not an option of the form key=value\n",
                         w.c_str());
            return 2;
        }
        options[w.substr(0, eq)] = w.substr(eq + 1);
        shown += " " + w;
    }
    try {
        probe->initialize(options);
    } catch (Vn::TestPerfBase::ExUsageError const& e) {
        std::fprintf(stderr, "vnperf: %s\nusage: vnperf %s key=value...\n%s%s",
                     e.getReason().c_str(), name.c_str(), probe->getUsage().c_str(),
                     Vn::IpTestPerf::getTileUsage().c_str());
        probe->cleanUp();
        return 2;
    } catch (Vn::ExBase const& e) {
        std::fprintf(stderr, "vnperf: %s\n", e.getReason().c_str());
        probe->cleanUp();
        return 1;
    }
    try {
        for (int i = 0; i < repeat; ++i)
            probe->run();
    } catch (Vn::ExBase const& e) {
        std::fprintf(stderr, "vnperf: %s failed: %s\n", shown.c_str(), e.getReason().c_str());
        probe->cleanUp();
        return 1;
    }
    Vn::TestPerfBase::ProfilerStats const s = probe->getProfilerStats();
    std::printf("%s: %d runs, mean %.3f ms, min %.3f ms, max %.3f ms\n", shown.c_str(), s.runs,
                1e3 * s.totalSeconds / s.runs, 1e3 * s.minSeconds, 1e3 * s.maxSeconds);
    probe->cleanUp();
    return 0;
}
