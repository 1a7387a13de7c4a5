// vnrender: the batch renderer. It starts the engine, evaluates a composition file (or its
// built-in graph) frame by frame, tile by tile, and writes image files.

#include "EngineSession.h"
#include "InBuildInfo.h"
#include "LgLog.h"

#include "HoComposition.h"
#include "HoRender.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <unistd.h>

namespace {

// "A-B" or "N".
std::pair<int, int> parseFrames(std::string const& text) {
    std::size_t const dash = text.find('-', 1);
    std::size_t used = 0;
    try {
        int const a = std::stoi(text.substr(0, dash), &used);
        if (used != (dash == std::string::npos ? text.size() : dash))
            throw std::invalid_argument(text);
        if (dash == std::string::npos)
            return {a, a};
        std::string const rest = text.substr(dash + 1);
        int const b = std::stoi(rest, &used);
        if (used != rest.size())
            throw std::invalid_argument(text);
        return {a, b};
    } catch (std::logic_error const&) {
        throw CLI::ValidationError("--frames", "'" + text + "' is not a frame range like 1-48");
    }
}

// "X,Y" in pixels, and a filter name; either may be missing.
Vn::HoPan parsePan(std::string const& pan, std::string const& filter) {
    Vn::HoPan p;
    if (!pan.empty()) {
        std::size_t const comma = pan.find(',');
        std::size_t used = 0;
        try {
            if (comma == std::string::npos)
                throw std::invalid_argument(pan);
            p.dx = std::stod(pan.substr(0, comma), &used);
            if (used != comma)
                throw std::invalid_argument(pan);
            std::string const rest = pan.substr(comma + 1);
            p.dy = std::stod(rest, &used);
            if (used != rest.size())
                throw std::invalid_argument(pan);
        } catch (std::logic_error const&) {
            throw CLI::ValidationError("--pan", "'" + pan + "' is not a pan like 12.5,-3");
        }
    }
    if (!filter.empty()) {
        p.filter = Vn::HoPan::filterOf(filter);
        if (p.filter < 0) {
            std::string names;
            for (std::string const& n : Vn::HoPan::filterNames())
                names += (names.empty() ? "" : ", ") + n;
            throw CLI::ValidationError("--filter",
                                       "'" + filter + "' is not a filter: " + names + " or 0-6");
        }
    }
    return p;
}

class ProgressLine {
public:
    explicit ProgressLine(bool shown) : _shown(shown), _start(std::chrono::steady_clock::now()) {}
    ~ProgressLine() {
        if (_shown && _printed)
            std::fputc('\n', stderr);
    }
    void operator()(Vn::HoRenderJob::Progress const& p) {
        show(-1, p.tilesDone, p.tilesTotal, p.framesDone, p.framesTotal);
    }
    void operator()(Vn::HoCompositionRender::Progress const& p) {
        show(p.frame, p.tilesDone, p.tilesTotal, p.framesDone, p.framesTotal);
    }
    // Stops the line so that a message starts on its own.
    void breakLine() {
        if (_shown && _printed)
            std::fputc('\n', stderr);
        _printed = false;
    }

private:
    void show(int frame, int tiles, int tilesTotal, int frames, int framesTotal) {
        if (!_shown)
            return;
        double const s =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
        double const done = (frames + (tilesTotal > 0 ? double(tiles) / tilesTotal : 0.0)) /
                            std::max(framesTotal, 1);
        std::fprintf(stderr, "\rvnrender: ");
        if (frame >= 0)
            std::fprintf(stderr, "frame %d  ", frame);
        std::fprintf(stderr, "tiles %d/%d  frames %d/%d  %.1f s", tiles, tilesTotal, frames,
                     framesTotal, s);
        if (done > 0.0 && done < 1.0)
            std::fprintf(stderr, ", about %.0f s left", s / done * (1.0 - done));
        std::fputs("   ", stderr);
        std::fflush(stderr);
        _printed = true;
    }

private:
    bool _shown;
    bool _printed = false;
    std::chrono::steady_clock::time_point _start;
};

} // namespace

// Renders a composition file; the exit code says whether every frame was written.
int renderComposition(std::string const& file, std::optional<std::pair<int, int>> const& frames,
                      std::vector<std::string> const& outputs, int threads, bool skipExisting,
                      bool describe, bool quiet, bool dumpDag) {
    Vn::HoComposition const c = Vn::HoComposition::load(file);
    if (describe) {
        std::cout << c.describe();
        return 0;
    }
    Vn::HoCompositionRender render;
    render.frames = frames;
    render.files = outputs;
    render.threads = threads;
    render.skipExisting = skipExisting;
    render.since = Vn::HoCompositionRender::modificationTime(file);
    if (dumpDag && !c.outputs.empty()) {
        std::string const dot = file + ".dag.dot";
        Vn::HoGraphDump::writeDot(c.imageOf(c.outputs.front()), dot);
        Vn::HoGraphDump::renderPng(dot, file + ".dag.png");
    }
    // The engine logs each failed evaluation at length; every failed frame gets its own line
    // below, so those entries are dropped and the rest print as before.
    Vn::LgLog::setOutput([](Vn::LgEntry const& e) {
        if (e.minor == "PxGraph" && e.text.rfind("Caught exception", 0) == 0)
            return;
        Vn::ExStdout::printAtomically(e.format());
    });
    ProgressLine progress(!quiet && ::isatty(STDERR_FILENO));
    Vn::HoCompositionRender::Result const r =
        render.run(c, [&](Vn::HoCompositionRender::Progress const& p) { progress(p); });
    progress.breakLine();
    for (auto const& [frame, why] : r.failed)
        std::cerr << "vnrender: error: frame " << frame << ": " << why << "\n";
    if (!quiet && !r.skipped.empty())
        std::cerr << "vnrender: " << r.skipped.size() << " frames were complete and skipped\n";
    if (r.failed.empty())
        return 0;
    std::cerr << "vnrender: " << r.failed.size() << " of "
              << r.failed.size() + r.rendered.size() + r.skipped.size() << " frames failed\n";
    return 3;
}

int main(int argc, char** argv) {
    CLI::App app{"vnrender: renders a composition file (or, without one, the built-in test graph) "
                 "through the engine and writes image files"};
    std::string composition;
    bool skipExisting = false;
    bool describe = false;
    app.add_option("file", composition, "Composition file to render (see docs/composition.md)");
    app.add_flag("--skip-existing", skipExisting,
                 "Skip frames whose files exist and are newer than the composition");
    app.add_flag("--describe", describe,
                 "Print the composition's tools, connections, frames and outputs, then stop");
    Vn::HoRenderJob job;
    job.outputs = {"out/default.exr", "out/default.png"};
    std::string format = "half";
    std::string frames;
    bool quiet = false;
    bool info = false;
    bool version = false;
    bool dumpDag = false;
    app.add_option("--width", job.width, "Width in pixels; the project's when not given");
    app.add_option("--height", job.height, "Height in pixels; the project's when not given");
    app.add_option("--format", format,
                   "Pixel depth: uint8, half or float; the project's when not given")
        ->check(CLI::IsMember({"uint8", "half", "float"}));
    app.add_option("--frames", frames,
                   "Frames A-B to render; output names then need '#' or '%04d' for the number");
    app.add_option("--threads", job.threads, "How many workers may run at once")
        ->check(CLI::Range(1, 1024));
    app.add_option("-o,--output", job.outputs,
                   "Output file; repeat for several. The extension chooses the file format")
        ->capture_default_str();
    std::string pan;
    std::string filter;
    app.add_option("--pan", pan, "Move the pattern by X,Y pixels over the background");
    app.add_option("--filter", filter,
                   "How --pan moves it: none (whole pixels), nearest, bilinear, mitchell, ewa, "
                   "ewa-gauss, ewa-jinc2, ewa-jinc3, or a filter value 0-6");
    std::string config;
    app.add_option("--config", config,
                   "Configuration file with the project's defaults; else $VN_CONFIG_FILE_NAME, "
                   "else config.xml in the working folder or in \"config\" beside vnrender");
    app.add_flag("-q,--quiet", quiet, "Print only errors");
    app.add_flag("--dump-dag", dumpDag,
                 "Also write the processing graph as DOT beside the first output (NAME.dag.dot), "
                 "and as PNG when Graphviz is installed");
    app.add_flag("--info", info, "Print the build information and the started packages, then stop");
    app.add_flag("--version", version, "Print the library's build information, then stop");

    try {
        app.parse(argc, argv);
        if (!frames.empty())
            job.frames = parseFrames(frames);
        if (!pan.empty() || !filter.empty())
            job.pan = parsePan(pan, filter);
    } catch (CLI::CallForHelp const& e) {
        return app.exit(e);
    } catch (CLI::ParseError const& e) {
        std::cerr << "vnrender: error: " << e.what() << "\n";
        return 2;
    }
    job.depth =
        std::map<std::string, Vn::IxPixelFormat::Depth>{{"uint8", Vn::IxPixelFormat::UINT8},
                                                        {"half", Vn::IxPixelFormat::FLOAT16},
                                                        {"float", Vn::IxPixelFormat::FLOAT32}}
            .at(format);

    bool const builtInOnly = app.count("--width") + app.count("--height") + app.count("--format") +
                                 app.count("--pan") + app.count("--filter") >
                             0;
    if (!composition.empty() && builtInOnly) {
        std::cerr << "vnrender: error: --width, --height, --format, --pan and --filter apply to "
                     "the built-in graph, not to a composition\n";
        return 2;
    }
    if (composition.empty() && (skipExisting || describe)) {
        std::cerr << "vnrender: error: --skip-existing and --describe need a composition file\n";
        return 2;
    }

    try {
        if (!composition.empty()) {
            std::vector<std::string> arguments(argv + 1, argv + argc);
            if (!config.empty())
                arguments.push_back("config:" + config);
            VnRender::EngineSession session(std::move(arguments));
            std::optional<std::pair<int, int>> range;
            if (!frames.empty())
                range = job.frames;
            return renderComposition(composition, range,
                                     app.count("--output") ? job.outputs
                                                           : std::vector<std::string>{},
                                     job.threads, skipExisting, describe, quiet, dumpDag);
        }
        if (!info && !version)
            job.validate();
        if (dumpDag)
            job.dagFile = job.defaultDagFile();
        // The options given win over the project's defaults, which fill the rest.
        bool const sized = app.count("--width") > 0, tall = app.count("--height") > 0,
                   deep = app.count("--format") > 0;
        std::vector<std::string> arguments(argv + 1, argv + argc);
        // The library's setting reads the file's name from its "config:" argument.
        if (!config.empty())
            arguments.push_back("config:" + config);
        VnRender::EngineSession session(std::move(arguments),
                                        [&](Vn::HoProjectSettings::Values& v) {
                                            if (sized)
                                                v.width = job.width;
                                            if (tall)
                                                v.height = job.height;
                                            if (deep)
                                                v.depth = job.depth;
                                        });
        Vn::PiProjectSettings const& project = Vn::PiProjectSettings::getInstance();
        job.width = project.getDefaultWidth();
        job.height = project.getDefaultHeight();
        job.depth = project.getDefaultDepth();
        job.frameRate = project.getDefaultRate();
        if (version) {
            std::cout << Vn::InBuildInfo::getBuildInformationString() << "\n";
            return 0;
        }
        if (info) {
            session.printBuildInfo(std::cout);
            std::cout << "Packages started: ";
            char const* sep = "";
            for (auto const& name : session.getStartOrder()) {
                std::cout << sep << name;
                sep = ", ";
            }
            std::cout << "\n";
            return 0;
        }
        ProgressLine progress(!quiet && ::isatty(STDERR_FILENO));
        job.run([&](Vn::HoRenderJob::Progress const& p) { progress(p); });
        return 0;
    } catch (Vn::HoRenderError const& e) {
        std::cerr << "vnrender: error: " << e.getReason() << "\n";
    } catch (Vn::ExBase const& e) {
        std::cerr << "vnrender: error: " << e.getDetailedReason() << "\n";
    } catch (std::exception const& e) {
        std::cerr << "vnrender: error: " << e.what() << "\n";
    }
    return 1;
}
