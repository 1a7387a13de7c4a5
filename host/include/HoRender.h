#pragma once

#include "ExBase.h"
#include "IxPixelFormat.h"
#include "PiNode.h"
#include "PxImageProtocol.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Vn {

// A failure the user can act on: a bad option, a file that cannot be written. Its reason is
// the whole message.
class VN_EXPORT HoRenderError : public ExBase {
public:
    HoRenderError(char const* file, int line, std::string message);
    ~HoRenderError() override;
    VN_EX_CLONE_RAISE(HoRenderError)
};

// A rendered frame: pixels of one format, top row first, lines packed.
struct VN_EXPORT HoImage {
    int width = 0;
    int height = 0;
    IxPixelFormat format;
    std::vector<std::byte> pixels;

    std::size_t getLineSize() const noexcept {
        return static_cast<std::size_t>(width) * format.getPixelSize();
    }
    // Pixel (x, y) counted from the top left, as float RGBA.
    CoRgbaColorTyped<float> getColor(int x, int y) const;
};

// A move of the built-in graph's pattern, in pixels, by whole pixels (filter 0) or resampled
// with a texture filter (1 to 6).
struct VN_EXPORT HoPan {
    double dx = 0.0;
    double dy = 0.0;
    int filter = 0;
    // The filter value of a name: none, nearest, bilinear, mitchell, ewa, ewa-gauss, ewa-jinc2,
    // ewa-jinc3, or a value from 0 to 6; -1 for anything else.
    static int filterOf(std::string const& name);
    static std::vector<std::string> filterNames();
};

// The renderer's built-in graph: the test pattern over an opaque dark grey background, both
// width x height of the given format. The pattern is made in float and converted to the
// format; the Over computes in float, so a frame in the format's depth is asked of the renderer;
// with a loop, its frames [first, second) repeat. When keep is given, it receives handles on the
// image and format nodes under the root: while they live, the graph stays whole (invalidations and
// dumps reach every node), not only the root and its own children. With a pan, a panner moves the
// pattern over the background.
struct VN_EXPORT HoDefaultGraph {
    static PxStrongHndl<PxImageProtocol const>
    create(int width, int height, PxImageFormat const& format,
           std::optional<std::pair<int, int>> const& loop = {},
           std::vector<PxStrongHndl<PxNode const>>* keep = nullptr,
           std::optional<HoPan> const& pan = {});
    // The same picture made by tools in the group, as one undoable edit: Test Pattern,
    // Repeat with a loop, Convert, Pan with a pan, Color Source and Over. Gives the Over node.
    static RCShdPtr<PiToolNode> createTools(PiGroupNode& group, int width, int height,
                                            PxImageFormat const& format,
                                            std::optional<std::pair<int, int>> const& loop = {},
                                            std::optional<HoPan> const& pan = {});
    // The image node behind a tool's output "Output".
    static PxStrongHndl<PxImageProtocol const> outputOf(PiToolNode& tool);
};

// Evaluates a node's frames through the engine, one request per tile.
class VN_EXPORT HoRenderer {
public:
    // (tiles done, tiles of the frame)
    using TileProgress = std::function<void(int, int)>;
    // The node's frame at scale 0 and a time, in the node's format. Waits for every tile;
    // raises what the engine raised.
    static HoImage renderFrame(PxStrongHndl<PxImageProtocol const> const& node, double time,
                               TileProgress const& progress = {});
    // The same frame in `depth` (the node's own when 0), each tile converted as it is copied.
    // `into` is filled in place: a frame of the same size and format as the last keeps its
    // memory, so a render of many frames touches fresh pages once.
    static void renderFrame(PxStrongHndl<PxImageProtocol const> const& node, double time, int depth,
                            HoImage& into, TileProgress const& progress = {});
};

// The processing graph as pictures.
class VN_EXPORT HoGraphDump {
public:
    // Writes the DOT text of the graph under root; raises HoRenderError when it cannot.
    static void writeDot(PxStrongHndl<PxImageProtocol const> const& root, std::string const& path);
    // Runs `dot -Tpng` on a DOT file; false when Graphviz is not installed. Raises HoRenderError
    // when it is installed and fails.
    static bool renderPng(std::string const& dotPath, std::string const& pngPath);
};

// Image files, through the image library.
class VN_EXPORT HoImageFile {
public:
    // Writes under a temporary name beside the final one and renames it, so that a failure
    // leaves no file under the final name. The file's format follows the extension; the data
    // type is the image's depth where the file format has it, else the nearest it has.
    // `compression` names the image library's compression, empty for the format's default.
    static void write(HoImage const& image, std::string const& path,
                      std::string const& compression = {});
    // Reads a file as float RGBA.
    static HoImage read(std::string const& path);

    // True when the name holds a frame pattern: a run of '#' or a printf form "%d" / "%0Nd".
    static bool hasFramePattern(std::string const& name);
    // The name with its frame pattern replaced by the frame number, padded to the run's length
    // or to N digits.
    static std::string expandFramePattern(std::string const& name, int frame);
};

// What the batch renderer is asked.
struct VN_EXPORT HoRenderJob {
    int width = 1920;
    int height = 1080;
    IxPixelFormat::Depth depth = IxPixelFormat::FLOAT16;
    std::vector<std::string> outputs;
    // First and last frame, both included; none renders frame 0 alone. With frames, the
    // pattern loops over its first kLoopFrames frames.
    std::optional<std::pair<int, int>> frames;
    static constexpr int kLoopFrames = 4;
    std::optional<HoPan> pan;
    // The running-worker limit; 0 keeps the engine's.
    int threads = 0;
    Rational frameRate = Rational(25);
    // When not empty, the DOT dump of the rendered graph is written there, and a PNG of it
    // beside it (its extension replaced by ".png") when Graphviz's `dot` is on the PATH.
    std::string dagFile;

    struct Progress {
        int tilesDone;
        int tilesTotal;
        int framesDone;
        int framesTotal;
    };
    // Checks the job and raises HoRenderError with what is wrong.
    void validate() const;
    // The DOT file beside the first output: its name (first frame) with ".dag.dot" for its
    // extension.
    std::string defaultDagFile() const;
    // Renders every frame and writes every output; the engine must be started.
    void run(std::function<void(Progress const&)> const& progress = {}) const;
};

} // namespace Vn
