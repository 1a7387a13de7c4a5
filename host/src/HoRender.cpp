#include "HoRender.h"
#include "Assertions.h"
#include "HoGraph.h"
#include "HoImageFiles.h"
#include "HoImageNodes.h"
#include "HoTools.h"
#include "IxConvertUtil.h"
#include "IxImageOps.h"
#include "PiCommandStack.h"
#include "PiImageConvertNode.h"
#include "PiImageRepeatNode.h"
#include "PiTopologyInterface.h"
#include "PxDAGMonitorImp.h"
#include "PxImageRequests.h"
#include "PxImageSourceNodes.h"
#include "PxPannerNode.h"
#include "PxValueNode.h"

#include <OpenImageIO/imageio.h>

#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace Vn {

HoRenderError::HoRenderError(char const* file, int line, std::string message) : ExBase(file, line) {
    setReason(std::move(message));
}

HoRenderError::~HoRenderError() = default;

#define HO_FAIL(message) throw HoRenderError(__FILE__, __LINE__, message)

namespace {
ImPixelFormat imFormat(IxPixelFormat const& f) {
    return ImPixelFormat(f.getComps(), f.getDepth());
}

// The image's pixels as the primitives see them: rows grow upwards, so the region's first row
// is the image's last.
IpPixels pixelsOf(HoImage& image, GeRectangle<int> const& region) {
    std::ptrdiff_t const line = static_cast<std::ptrdiff_t>(image.getLineSize());
    return {image.pixels.data() + (image.height - 1) * line, -line, imFormat(image.format), region};
}

template <class T>
PxStrongHndl<T> made(T* node) {
    PxStrongHndl<T> h(node);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return h;
}

template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const> value(T v) {
    return made(new PxAnimValueNode<T>(PxNode::Init{"value"}, PxResult<T>(v)));
}

OIIO::TypeDesc typeOf(IxPixelFormat::Depth depth) {
    switch (depth) {
    case IxPixelFormat::UINT8:
        return OIIO::TypeDesc::UINT8;
    case IxPixelFormat::FLOAT16:
        return OIIO::TypeDesc::HALF;
    case IxPixelFormat::FLOAT32:
        return OIIO::TypeDesc::FLOAT;
    default:
        HO_FAIL("images of complex pixels cannot be written");
    }
}

std::string firstLine(std::string const& text) {
    std::string const line = text.substr(0, text.find('\n'));
    return line.empty() ? "unknown error" : line;
}

std::regex const kFramePattern("#+|%0?([0-9]*)d");
} // namespace

CoRgbaColorTyped<float> HoImage::getColor(int x, int y) const {
    VN_ASSERT(x >= 0 && x < width && y >= 0 && y < height);
    CoRgbaColorTyped<float> c;
    IxConvertUtil::readFrom(
        &c, pixels.data() + y * getLineSize() + static_cast<std::size_t>(x) * format.getPixelSize(),
        1, imFormat(format));
    return c;
}

PxStrongHndl<PxImageProtocol const>
HoDefaultGraph::create(int width, int height, PxImageFormat const& format,
                       std::optional<std::pair<int, int>> const& loop,
                       std::vector<PxStrongHndl<PxNode const>>* keep,
                       std::optional<HoPan> const& pan) {
    // A node whose last handle goes leaves the graph: its children stop knowing it as a
    // parent. Kept handles hold the whole graph together for invalidation and dumps.
    auto node = [keep](auto* n) {
        auto h = made(n);
        if (keep)
            keep->emplace_back(h);
        return h;
    };
    PxStrongHndl<PxImageFormatProtocol const> const f =
        node(new PxImageFormatNode(PxNode::Init{"format"}, format));
    // The pattern is made in float and converted to the output's depth.
    IxPixelFormat const& pixels = format.getPixelFormat();
    PxStrongHndl<PxImageFormatProtocol const> const patternFormat = node(
        new PxImageFormatNode(PxNode::Init{"pattern format"},
                              PxImageFormat(IxPixelFormat(pixels.getComps(), IxPixelFormat::FLOAT32,
                                                          pixels.getAspectRatio()),
                                            format.getFrameRate())));
    auto const w = value(width);
    auto const h = value(height);
    auto const clear = value(CoRgbColorTyped<float>{});
    auto const transparent = value(0.0);
    PxStrongHndl<PxImageProtocol const> pattern = node(new HoTestPatternNode(
        PxNode::Init{"test pattern"}, patternFormat, w, h, clear, transparent));
    if (loop)
        pattern = node(new PiImageRepeatNode(PxNode::Init{"loop"}, pattern, value(loop->first),
                                             value(loop->second),
                                             value(static_cast<int>(TmTypes::LOOP)), value(false)));
    PxStrongHndl<PxImageProtocol const> converted = node(new PiImageInputConvertNode(
        PxNode::Init{"convert"}, pattern, PxNodePtr<PxImageFormatProtocol const>(f)));
    if (pan)
        converted =
            node(new PxPannerNode(PxNode::Init{"pan"}, converted, value(pan->dx), value(pan->dy),
                                  value(0.0), value(0.0), value(pan->filter), value(1.0)));
    PxStrongHndl<PxImageProtocol const> const background =
        node(new PxColorSourceNode(PxNode::Init{"background"}, f, w, h, clear, transparent,
                                   value(CoRgbColorTyped<float>{0.18f, 0.18f, 0.18f}), value(1.0)));
    return made(new HoOverNode(PxNode::Init{"over"}, converted, background));
}

namespace {
template <class T>
void setInput(PiToolNode& tool, char const* input, T v) {
    RCShdPtr<PiNode> value = tool.findInput(input)->getConnectedOutput()->retrieveNode();
    rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
}

void storeFormat(PiToolNode& tool, PxImageFormat const& format) {
    if (auto d = rcDynamicCast<PiTypedValue<int>>(tool.findValue("Depth")))
        d->set(format.getPixelFormat().getDepth());
    Rational const& r = format.getFrameRate();
    rcCast<PiTypedValue<std::string>>(tool.findValue("Rate"))
        ->set(std::to_string(r.getNumerator()) + "/" + std::to_string(r.getDenominator()));
}

void feed(PiToolNode& from, PiToolNode& to, char const* input) {
    to.findInput(input)->connect(from.findOutput("Output"));
}
} // namespace

RCShdPtr<PiToolNode> HoDefaultGraph::createTools(PiGroupNode& group, int width, int height,
                                                 PxImageFormat const& format,
                                                 std::optional<std::pair<int, int>> const& loop,
                                                 std::optional<HoPan> const& pan) {
    PiUndoGuard guard(*group.getGraph(), "Default Graph");
    auto sized = [&](RCShdPtr<PiTool const> const& tool, char const* name) {
        RCShdPtr<PiToolNode> n = group.createToolNode(tool, name);
        setInput(*n, "Width", width);
        setInput(*n, "Height", height);
        storeFormat(*n, format);
        return n;
    };
    RCShdPtr<PiToolNode> image = sized(HoTools::testPattern(), "Pattern");
    if (loop) {
        RCShdPtr<PiToolNode> r = group.createToolNode(HoTools::repeat(), "Loop");
        setInput(*r, "In", loop->first);
        setInput(*r, "Out", loop->second);
        setInput(*r, "Mode", static_cast<int>(TmTypes::LOOP));
        feed(*image, *r, "Source");
        image = r;
    }
    RCShdPtr<PiToolNode> convert = group.createToolNode(HoTools::convert(), "Convert");
    storeFormat(*convert, format);
    feed(*image, *convert, "Source");
    image = convert;
    if (pan) {
        RCShdPtr<PiToolNode> p = group.createToolNode(HoTools::pan(), "Pan");
        setInput(*p, "X", pan->dx);
        setInput(*p, "Y", pan->dy);
        setInput(*p, "Filter", pan->filter);
        feed(*image, *p, "Source");
        image = p;
    }
    RCShdPtr<PiToolNode> background = sized(HoTools::colorSource(), "Background");
    RCShdPtr<PiToolNode> over = group.createToolNode(HoTools::over(), "Over");
    feed(*image, *over, "Front");
    feed(*background, *over, "Back");
    return over;
}

PxStrongHndl<PxImageProtocol const> HoDefaultGraph::outputOf(PiToolNode& tool) {
    auto topo = rcDynamicCast<PiTopologyInterface>(tool.getController().lock());
    if (!topo)
        HO_FAIL("the node \"" + tool.getNodeName() + "\" has no processing side");
    PxStrongHndl<PxNode const> const out =
        topo->getOutputProcNode(tool.findOutput("Output")).lock();
    auto const* image = dynamic_cast<PxImageProtocol const*>(out.get());
    if (!image)
        HO_FAIL("the node \"" + tool.getNodeName() + "\" makes no image");
    return PxStrongHndl<PxImageProtocol const>(image);
}

HoImage HoRenderer::renderFrame(PxStrongHndl<PxImageProtocol const> const& node, double time,
                                TileProgress const& progress) {
    HoImage image;
    renderFrame(node, time, 0, image, progress);
    return image;
}

void HoRenderer::renderFrame(PxStrongHndl<PxImageProtocol const> const& node, double time,
                             int depth, HoImage& into, TileProgress const& progress) {
    if (depth != 0 && depth != IxPixelFormat::UINT8 && depth != IxPixelFormat::FLOAT16 &&
        depth != IxPixelFormat::FLOAT32)
        HO_FAIL("a frame cannot be made " + std::to_string(depth) + " bits deep: 8, 16 or 32 are");
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    PxUPtr<PxImageProtocol const> const n(node);
    PxRequestPtr<PxImageFormatRequest> formatRequest(new PxImageFormatRequest(n));
    PxRequestPtr<PxImageRODRequest> rodRequest(
        new PxImageRODRequest(n, PxTimeStreamContext(time, 0)));
    mgr.executeRequest(formatRequest.get(), false);
    mgr.executeRequest(rodRequest.get(), false);
    PxImageFormat const format = formatRequest->getImageFormat();
    GeRectangle<int> const region = PxImageProtocol::nominalToPixelized(
        rodRequest->getImageROD().getROD(), format.getAspectRatio(), 1.0f);

    IxPixelFormat const& own = format.getPixelFormat();
    into.width = region.width();
    into.height = region.height();
    into.format = depth == 0 ? own : IxPixelFormat(own.getComps(), depth, own.getAspectRatio());
    into.pixels.resize(into.getLineSize() * static_cast<std::size_t>(into.height));
    IpPixels const dst = pixelsOf(into, region);

    // Every tile is submitted at once; they are collected in order, each let go once copied.
    GeRectangle<int> const tiles = PxImageProtocol::convertPixelsToTiles(region);
    std::vector<PxRequestPtr<PxImageMultiTileRequest>> requests;
    std::vector<GeRectangle<int>> areas;
    for (int j = tiles.ymin; j < tiles.ymax; ++j)
        for (int i = tiles.xmin; i < tiles.xmax; ++i) {
            requests.emplace_back(
                new PxImageMultiTileRequest(n, GeVector2<int>{i, j}, 0, PxTimeInfo(time), 0));
            areas.push_back(
                PxImageProtocol::convertTilesToPixels({i, i + 1, j, j + 1}).intersect(region));
            mgr.executeRequest(requests.back().get(), false);
        }
    int done = 0;
    try {
        for (std::size_t k = 0; k < requests.size(); ++k) {
            auto& r = requests[k];
            // Pixels no tile holds are clear, as in a fresh frame, whatever the last one left.
            long covered = 0;
            for (PxImageResult const& result : *r->getResults()) {
                GeRectangle<int> const c = result.getPixelRegion().intersect(areas[k]);
                if (!c.isEmpty())
                    covered += long(c.width()) * c.height();
            }
            if (covered != long(areas[k].width()) * areas[k].height())
                ipSet(dst, areas[k], {0, 0, 0, 0});
            for (PxImageResult const& result : *r->getResults()) {
                IxReadGuard const src = result.getTileGuard();
                ipCopy(dst, ipPixelsOf(src), result.getPixelRegion());
            }
            r.reset();
            if (progress)
                progress(++done, static_cast<int>(requests.size()));
        }
    } catch (...) {
        // The caller may drop the graph once the frame has failed: no tile of it may still be
        // running then. The rest are cancelled and awaited; their own failures add nothing.
        for (auto& r : requests)
            if (r)
                mgr.cancelRequest(r.get());
        for (auto& r : requests)
            if (r) {
                try {
                    mgr.waitRequest(r.get());
                } catch (...) {
                }
            }
        throw;
    }
}

void HoGraphDump::writeDot(PxStrongHndl<PxImageProtocol const> const& root,
                           std::string const& path) {
    std::filesystem::path const p(path);
    if (p.has_parent_path()) {
        std::error_code ec;
        std::filesystem::create_directories(p.parent_path(), ec);
    }
    try {
        PxDAGMonitorImp::writeDOTFile(PxStrongHndl<PxNode const>(root), path);
    } catch (ExBase const&) {
        HO_FAIL("cannot write the graph to '" + path + "'");
    }
}

bool HoGraphDump::renderPng(std::string const& dotPath, std::string const& pngPath) {
    std::string const out = "-o" + pngPath;
    char const* argv[] = {"dot", "-Tpng", out.c_str(), dotPath.c_str(), nullptr};
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // Graphviz's own complaints would break the one-line error rule.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    int const rc = posix_spawnp(&pid, "dot", &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        return false; // not installed
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        return false;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        HO_FAIL("Graphviz could not draw '" + dotPath + "'");
    return true;
}

void HoImageFile::write(HoImage const& image, std::string const& path,
                        std::string const& compression) {
    namespace fs = std::filesystem;
    fs::path const final(path);
    if (final.has_parent_path()) {
        std::error_code ec;
        fs::create_directories(final.parent_path(), ec);
        if (ec)
            HO_FAIL("cannot write '" + path + "': " + ec.message());
    }
    fs::path const tmp = HoOiioImageFile::temporaryBeside(path);
    auto out = OIIO::ImageOutput::create(tmp.string());
    if (!out)
        HO_FAIL("cannot write '" + path + "': no image format for the extension '" +
                final.extension().string() + "'");
    OIIO::ImageSpec desc(image.width, image.height, image.format.getComps(),
                         typeOf(image.format.getDepth()));
    if (image.format.getComps() == IxPixelFormat::RGBA)
        desc.alpha_channel = 3;
    if (!compression.empty())
        desc.attribute("compression", compression);
    bool ok = out->open(tmp.string(), desc);
    if (ok)
        ok = out->write_image(typeOf(image.format.getDepth()), image.pixels.data());
    ok = out->close() && ok;
    if (!ok) {
        std::string const why = firstLine(out->geterror());
        std::error_code ignored;
        fs::remove(tmp, ignored);
        HO_FAIL("cannot write '" + path + "': " + why);
    }
    try {
        HoOiioImageFile::commitTemporary(tmp.string(), path);
    } catch (ExBase const& e) {
        HO_FAIL("cannot write '" + path + "': " + e.getReason());
    }
}

HoImage HoImageFile::read(std::string const& path) {
    auto in = OIIO::ImageInput::create(path);
    OIIO::ImageSpec desc;
    if (!in || !in->open(path, desc))
        HO_FAIL("cannot read '" + path + "': " + firstLine(in ? in->geterror() : OIIO::geterror()));
    HoImage image;
    image.width = desc.width;
    image.height = desc.height;
    image.format = IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
    std::vector<float> raw(static_cast<std::size_t>(desc.width) * desc.height * desc.nchannels);
    if (!in->read_image(0, 0, 0, desc.nchannels, OIIO::TypeDesc::FLOAT, raw.data()))
        HO_FAIL("cannot read '" + path + "': " + firstLine(in->geterror()));
    image.pixels.resize(image.getLineSize() * image.height);
    auto* px = reinterpret_cast<CoRgbaColorTyped<float>*>(image.pixels.data());
    for (std::size_t i = 0, n = static_cast<std::size_t>(desc.width) * desc.height; i < n; ++i) {
        float const* s = raw.data() + i * desc.nchannels;
        float const grey = s[0];
        px[i] = {grey, desc.nchannels > 2 ? s[1] : grey, desc.nchannels > 2 ? s[2] : grey,
                 desc.nchannels == 4   ? s[3]
                 : desc.nchannels == 2 ? s[1]
                                       : 1.0f};
    }
    return image;
}

bool HoImageFile::hasFramePattern(std::string const& name) {
    return std::regex_search(std::filesystem::path(name).filename().string(), kFramePattern);
}

std::string HoImageFile::expandFramePattern(std::string const& name, int frame) {
    std::filesystem::path p(name);
    std::string file = p.filename().string();
    std::smatch m;
    if (!std::regex_search(file, m, kFramePattern))
        return name;
    std::size_t const width =
        m.str(0)[0] == '#' ? m.length(0) : (m[1].length() ? std::stoul(m.str(1)) : 0);
    std::string digits = std::to_string(frame < 0 ? -frame : frame);
    if (digits.size() < width)
        digits.insert(0, width - digits.size(), '0');
    if (frame < 0)
        digits.insert(0, 1, '-');
    file = m.prefix().str() + digits + m.suffix().str();
    p.replace_filename(file);
    return p.string();
}

void HoRenderJob::validate() const {
    if (width < 1 || height < 1 || width > 65536 || height > 65536)
        HO_FAIL("the size " + std::to_string(width) + "x" + std::to_string(height) +
                " is out of range: width and height go from 1 to 65536");
    if (outputs.empty())
        HO_FAIL("no output file is given");
    if (frames && frames->first > frames->second)
        HO_FAIL("the frame range " + std::to_string(frames->first) + "-" +
                std::to_string(frames->second) + " ends before it starts");
    if (pan && (!std::isfinite(pan->dx) || !std::isfinite(pan->dy) || std::fabs(pan->dx) > 1e6 ||
                std::fabs(pan->dy) > 1e6))
        HO_FAIL("the pan " + std::to_string(pan->dx) + "," + std::to_string(pan->dy) +
                " is not a number of pixels within a million");
    if (pan && (pan->filter < 0 || pan->filter > 6))
        HO_FAIL("the filter value " + std::to_string(pan->filter) + " names no filter: 0 to 6 do");
    bool const several = frames && frames->first != frames->second;
    for (std::string const& out : outputs) {
        if (several && !HoImageFile::hasFramePattern(out))
            HO_FAIL("the output '" + out +
                    "' needs a frame pattern ('#' or '%04d') to hold several frames");
        std::string const ext = std::filesystem::path(out).extension().string();
        if (ext.empty() || !OIIO::ImageOutput::create(out))
            HO_FAIL("cannot write '" + out + "': no image format for the extension '" + ext + "'");
    }
}

int HoPan::filterOf(std::string const& name) {
    static std::pair<char const*, int> const names[] = {
        {"none", 0},     {"nearest", 0},   {"bilinear", 1},  {"ewa", 2},
        {"mitchell", 3}, {"ewa-gauss", 4}, {"ewa-jinc2", 5}, {"ewa-jinc3", 6}};
    for (auto const& [n, v] : names)
        if (name == n)
            return v;
    if (name.size() == 1 && name[0] >= '0' && name[0] <= '6')
        return name[0] - '0';
    return -1;
}

std::vector<std::string> HoPan::filterNames() {
    return {"none",     "nearest",   "bilinear",  "ewa",
            "mitchell", "ewa-gauss", "ewa-jinc2", "ewa-jinc3"};
}

std::string HoRenderJob::defaultDagFile() const {
    VN_ASSERT(!outputs.empty());
    std::string const first =
        frames ? HoImageFile::expandFramePattern(outputs.front(), frames->first) : outputs.front();
    return std::filesystem::path(first).replace_extension(".dag.dot").string();
}

void HoRenderJob::run(std::function<void(Progress const&)> const& progress) const {
    validate();
    if (threads > 0)
        PxRequestMgr::getInstance().setMaxRunningWorkers(threads);
    PxImageFormat const format(IxPixelFormat(IxPixelFormat::RGBA, depth), frameRate);
    int const first = frames ? frames->first : 0;
    std::optional<std::pair<int, int>> loop;
    if (frames)
        loop = std::pair{first, first + kLoopFrames};
    RCShdPtr<PiGraph> const tools = HoGraph::create("default");
    RCShdPtr<PiToolNode> const over =
        HoDefaultGraph::createTools(*tools->getRootNode(), width, height, format, loop, pan);
    PxStrongHndl<PxImageProtocol const> const graph = HoDefaultGraph::outputOf(*over);
    int const last = frames ? frames->second : 0;
    int const nbFrames = last - first + 1;
    if (!dagFile.empty()) {
        HoGraphDump::writeDot(graph, dagFile);
        HoGraphDump::renderPng(dagFile,
                               std::filesystem::path(dagFile).replace_extension(".png").string());
    }
    HoImage image;
    for (int f = first; f <= last; ++f) {
        double const time = static_cast<double>(f) / frameRate.toDouble();
        HoRenderer::renderFrame(graph, time, depth, image, [&](int done, int total) {
            if (progress)
                progress({done, total, f - first, nbFrames});
        });
        for (std::string const& out : outputs)
            HoImageFile::write(image, frames ? HoImageFile::expandFramePattern(out, f) : out);
        if (progress)
            progress({1, 1, f - first + 1, nbFrames});
    }
}

} // namespace Vn
