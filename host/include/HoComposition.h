#pragma once

#include "HoRender.h"
#include "IxPixelFormat.h"
#include "PiGraph.h"
#include "Rational.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vn {

// What a composition writes: the image of one tool's output socket, one file per frame.
struct VN_EXPORT HoCompositionOutput {
    // A node at the top of the graph.
    std::string node;
    std::string socket = "Output";
    // With a frame pattern ('#' runs or "%04d") when the range holds more than one frame.
    std::string file;
    // The file's compression by the image library's name ("none", "zip", "piz", "dwaa", "lzw"
    // and the rest of HoComposition::compressions()); empty for the format's own default.
    std::string compression = {};
};

// A composition: one tool graph and what a render of it needs (frames, rate, output depth,
// outputs). Its file is XML, versioned; see docs/composition.md.
class VN_EXPORT HoComposition {
public:
    // The version this program writes; files of a newer one are refused.
    static constexpr int kVersion = 1;

    RCShdPtr<PiGraph> graph;
    int first = 1;
    int last = 1;
    Rational rate = Rational(25);
    // The depth of the files written; the tools' own depth travels through the graph.
    IxPixelFormat::Depth depth = IxPixelFormat::FLOAT16;
    std::vector<HoCompositionOutput> outputs;

    // A composition with an empty graph named `name`.
    static HoComposition create(std::string const& name);
    // The compressions an output may name. A format without the one named writes its default.
    static std::vector<std::string> const& compressions();
    // Reads the text into a new graph, as one undoable edit. Raises HoRenderError naming
    // `origin`: malformed XML (with line and column), a newer version, an unknown tool (with
    // the registered ones), a bad connection, a value outside its input's range, a cycle.
    static HoComposition parse(std::string_view text, std::string const& origin);
    static HoComposition load(std::string const& path);

    // The whole graph with the render settings.
    std::string toXml() const;
    // Atomically: a failure leaves any earlier file as it was.
    void save(std::string const& path) const;

    // Raises HoRenderError when the settings cannot be rendered.
    void validate() const;
    // The tools, their connections, the frames and the outputs, a line each.
    std::string describe() const;
    // The image node behind an output; raises HoRenderError when there is none.
    PxStrongHndl<PxImageProtocol const> imageOf(HoCompositionOutput const& output) const;
};

// A render of a composition, frame after frame; each frame is independent of the others, and
// its files are written atomically.
struct VN_EXPORT HoCompositionRender {
    // Overrides the composition's range.
    std::optional<std::pair<int, int>> frames;
    // When not empty, these files replace the composition's outputs, all of its first output.
    std::vector<std::string> files;
    // The running-worker limit; 0 keeps the engine's.
    int threads = 0;
    // Skips a frame whose files all exist and changed after `since` (the composition file's
    // modificationTime, say).
    bool skipExisting = false;
    double since = 0.0;
    // Seconds since the epoch of the file's last change; -1 when there is no such file.
    static double modificationTime(std::string const& path);

    struct Progress {
        int frame;
        int tilesDone;
        int tilesTotal;
        int framesDone;
        int framesTotal;
    };
    struct Result {
        std::vector<int> rendered;
        std::vector<int> skipped;
        // The frames that failed, with why.
        std::vector<std::pair<int, std::string>> failed;
    };
    // The engine must be started. Raises HoRenderError for settings that cannot render at all;
    // a frame that fails is reported in the result and the next one is rendered.
    Result run(HoComposition const& composition,
               std::function<void(Progress const&)> const& progress = {}) const;
};

} // namespace Vn
