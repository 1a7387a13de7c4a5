#include "HoComposition.h"
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "HoToolRegistry.h"
#include "HoTools.h"
#include "IxConvertUtil.h"
#include "PiCommandStack.h"
#include "PiSockets.h"
#include "SdTexture.h"

#include "InPackageInit.h"
#include "PxRequestMgr.h"

#include "../../platform/resmgt/tests/TempFolderTest.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>

using namespace Vn;
namespace fs = std::filesystem;

namespace {

using Color = CoRgbaColorTyped<float>;

// What the default graph shows at pixel (x, y) from the top left of a w x h frame.
Color expected(int x, int y, int w, int h, double time) {
    Color const front = HoTestPatternNode::colorAt((float(x) + 0.5f) / float(w),
                                                   (float(y) + 0.5f) / float(h), time);
    return HoOverNode::over(front, {0.18f, 0.18f, 0.18f, 1.0f});
}

void expectNear(Color const& a, Color const& b, float tolerance, std::string const& where) {
    EXPECT_NEAR(a.r, b.r, tolerance) << where;
    EXPECT_NEAR(a.g, b.g, tolerance) << where;
    EXPECT_NEAR(a.b, b.b, tolerance) << where;
    EXPECT_NEAR(a.a, b.a, tolerance) << where;
}

// A job of the built-in graph; frame 0 alone without frames.
HoRenderJob jobOf(int w, int h, IxPixelFormat::Depth depth, std::vector<std::string> outputs,
                  std::optional<std::pair<int, int>> frames = {}) {
    HoRenderJob job;
    job.width = w;
    job.height = h;
    job.depth = depth;
    job.outputs = std::move(outputs);
    job.frames = frames;
    return job;
}

// The engine started, and a folder for the test's files.
class Render : public VnTest::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        InInitMgr::getInstance().initialize();
    }
    void TearDown() override {
        InInitMgr::getInstance().finalize();
        TempFolderTest::TearDown();
    }
    std::string path(std::string const& name) const { return at(name).getString(); }
};
using RenderProgram = Render;

// Runs a command; gives its exit code and what it printed on stderr.
std::pair<int, std::string> runCommand(std::string const& command) {
    std::string const err =
        fs::temp_directory_path() / ("vnrender-err-" + std::to_string(::getpid()));
    int const status = std::system((command + " 2>" + err).c_str());
    std::ifstream in(err);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    fs::remove(err);
    return {WEXITSTATUS(status), text};
}

} // namespace

// The renderer's picture made by tools is the one its processing graph makes, byte for byte,
// with and without a loop and a pan, at every depth the frame is asked in.
TEST_F(Render, ToolGraphMakesTheSamePictureAsTheProcessingGraph) {
    struct Case {
        IxPixelFormat::Depth depth;
        std::optional<std::pair<int, int>> loop;
        std::optional<HoPan> pan;
        double time;
    };
    std::vector<Case> const cases = {
        {IxPixelFormat::UINT8, {}, {}, 0.0},
        {IxPixelFormat::FLOAT16, std::pair{0, 4}, {}, 6.0 / 25.0},
        {IxPixelFormat::FLOAT32, {}, HoPan{30.5, 20.25, HoPan::filterOf("mitchell")}, 0.0},
        {IxPixelFormat::FLOAT16, std::pair{2, 6}, HoPan{3.0, -2.0, 0}, 9.0 / 25.0},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Case const& c = cases[i];
        PxImageFormat const format(IxPixelFormat(IxPixelFormat::RGBA, c.depth), Rational(25));
        std::vector<PxStrongHndl<PxNode const>> keep;
        // Both work in float; the frames come out in the format's depth.
        HoImage nodes, tools;
        HoRenderer::renderFrame(HoDefaultGraph::create(150, 70, format, c.loop, &keep, c.pan),
                                c.time, c.depth, nodes);
        RCShdPtr<PiGraph> const graph = HoGraph::create("default");
        RCShdPtr<PiToolNode> const over =
            HoDefaultGraph::createTools(*graph->getRootNode(), 150, 70, format, c.loop, c.pan);
        HoRenderer::renderFrame(HoDefaultGraph::outputOf(*over), c.time, c.depth, tools);
        EXPECT_EQ(tools.format, nodes.format) << i;
        EXPECT_EQ(int(tools.format.getDepth()), int(c.depth)) << i;
        EXPECT_TRUE(tools.pixels == nodes.pixels) << i;
        EXPECT_EQ(graph->getCommandStack().getUndoCount(), 1) << i;
    }
}

TEST_F(Render, AFrameWrittenAndReadBackHasThePatternOverTheBackground) {
    // Wider and taller than one tile, so that several tiles meet in the file.
    HoRenderJob const job = jobOf(700, 530, IxPixelFormat::FLOAT32,
                                  {path("frame.exr"), path("frame.png")}, std::pair{3, 3});
    int calls = 0;
    job.run([&](HoRenderJob::Progress const& p) {
        ++calls;
        EXPECT_LE(p.tilesDone, p.tilesTotal);
        EXPECT_EQ(p.framesTotal, 1);
    });
    EXPECT_GE(calls, 4);
    double const time = 3.0 / 25.0;
    HoImage const exr = HoImageFile::read(path("frame.exr"));
    ASSERT_EQ(exr.width, 700);
    ASSERT_EQ(exr.height, 530);
    HoImage const png = HoImageFile::read(path("frame.png"));
    for (auto [x, y] : std::array<std::pair<int, int>, 7>{
             {{0, 0}, {699, 0}, {511, 0}, {512, 100}, {350, 200}, {10, 529}, {699, 529}}}) {
        std::string const where = std::to_string(x) + "," + std::to_string(y);
        Color const e = expected(x, y, 700, 530, time);
        expectNear(exr.getColor(x, y), e, 1e-6f, where);
        // PNG: 8 bits, and its alpha is straight; the frame is opaque.
        expectNear(png.getColor(x, y), e, 1.0f / 255.0f, where);
    }
    // The top band is red, the bottom grey.
    EXPECT_GT(exr.getColor(600, 5).r, exr.getColor(600, 5).g);
    EXPECT_EQ(exr.getColor(600, 525).r, exr.getColor(600, 525).b);
}

TEST_F(Render, APannedPatternLandsWhereItWasMovedForEveryFilter) {
    for (std::string const filter :
         {"none", "bilinear", "mitchell", "ewa-gauss", "ewa-jinc2", "ewa-jinc3"}) {
        HoRenderJob job = jobOf(200, 120, IxPixelFormat::FLOAT32, {path("pan.exr")});
        // Right by 20 and, rows growing upwards, down by 10.
        job.pan = HoPan{20.0, -10.0, HoPan::filterOf(filter)};
        job.run();
        HoImage const img = HoImageFile::read(path("pan.exr"));
        // The frame is the union of the moved pattern and the background.
        ASSERT_EQ(img.width, 220) << filter;
        ASSERT_EQ(img.height, 130) << filter;
        // Band middles, where the wider filters see smooth ramps.
        float const tolerance = filter == "none" ? 1e-6f : (filter == "bilinear" ? 1e-4f : 2e-2f);
        for (auto [px, py] : std::array<std::pair<int, int>, 5>{
                 {{5, 15}, {60, 45}, {120, 75}, {170, 100}, {100, 105}}})
            expectNear(img.getColor(20 + px, 10 + py), expected(px, py, 200, 120, 0.0), tolerance,
                       filter + " at " + std::to_string(px) + "," + std::to_string(py));
        // Above the moved pattern only the background shows.
        expectNear(img.getColor(100, 5), Color{0.18f, 0.18f, 0.18f, 1.0f}, 1e-6f, filter);
    }
}

TEST_F(Render, FramesGoToNumberedFilesAndThePatternMoves) {
    jobOf(40, 8, IxPixelFormat::FLOAT16, {path("f.##.exr"), path("g.%03d.exr")}, std::pair{-1, 1})
        .run();
    EXPECT_EQ(names(), (std::vector<std::string>{"f.-01.exr", "f.00.exr", "f.01.exr", "g.-001.exr",
                                                 "g.000.exr", "g.001.exr"}));
    HoImage const a = HoImageFile::read(path("f.00.exr"));
    HoImage const b = HoImageFile::read(path("f.01.exr"));
    EXPECT_NE(a.getColor(20, 0).r, b.getColor(20, 0).r);
    expectNear(b.getColor(20, 0), expected(20, 0, 40, 8, 1.0 / 25.0), 2e-3f, "half");
}

TEST_F(Render, AFrameRangeLoopsThePattern) {
    jobOf(40, 8, IxPixelFormat::UINT8, {path("f.##.png")}, std::pair{2, 11}).run();
    auto frame = [&](int f) {
        return HoImageFile::read(path(HoImageFile::expandFramePattern("f.##.png", f)));
    };
    auto same = [](HoImage const& a, HoImage const& b) {
        for (int x = 0; x < a.width; ++x)
            if (!(a.getColor(x, 3) == b.getColor(x, 3)))
                return false;
        return true;
    };
    // Frames 2 to 5 move; then they come again, every four frames.
    std::vector<HoImage> const first{frame(2), frame(3), frame(4), frame(5)};
    for (int i = 1; i < 4; ++i)
        EXPECT_FALSE(same(first[0], first[static_cast<std::size_t>(i)])) << i;
    for (int f = 6; f <= 11; ++f)
        EXPECT_TRUE(same(frame(f), first[static_cast<std::size_t>((f - 2) % 4)])) << f;
    expectNear(frame(9).getColor(20, 3), expected(20, 3, 40, 8, 5.0 / 25.0), 1.0f / 255.0f, "loop");
}

TEST(FramePattern, ExpandsHashesAndPrintfForms) {
    EXPECT_EQ(HoImageFile::expandFramePattern("a/b.####.exr", 12), "a/b.0012.exr");
    EXPECT_EQ(HoImageFile::expandFramePattern("b.%04d.exr", 7), "b.0007.exr");
    EXPECT_EQ(HoImageFile::expandFramePattern("b.%d.exr", 7), "b.7.exr");
    EXPECT_EQ(HoImageFile::expandFramePattern("b.#.exr", 123), "b.123.exr");
    // Only the file name holds the pattern.
    EXPECT_FALSE(HoImageFile::hasFramePattern("dir#1/b.exr"));
    EXPECT_EQ(HoImageFile::expandFramePattern("dir#1/b.exr", 3), "dir#1/b.exr");
}

TEST_F(Render, BadJobsAreRejectedBeforeRendering) {
    auto fails = [](HoRenderJob const& job, std::string const& text) {
        try {
            job.validate();
            ADD_FAILURE() << "accepted: " << text;
        } catch (HoRenderError const& e) {
            EXPECT_NE(e.getReason().find(text), std::string::npos) << e.getReason();
        }
    };
    HoRenderJob job;
    job.outputs = {path("x.exr")};
    job.width = 0;
    fails(job, "out of range");
    job.width = 8;
    job.frames = std::pair{2, 1};
    fails(job, "ends before it starts");
    job.frames = std::pair{1, 2};
    fails(job, "needs a frame pattern");
    job.frames.reset();
    job.outputs = {path("x.nosuchformat")};
    fails(job, "no image format");
    job.outputs.clear();
    fails(job, "no output");
}

TEST_F(Render, AFailedWriteLeavesNoFileUnderTheFinalName) {
    HoImage image;
    image.width = 2;
    image.height = 2;
    image.format = IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8);
    image.pixels.assign(16, std::byte{0x80});
    // The final name is taken by a folder: the rename fails.
    fs::create_directories(path("taken.exr"));
    EXPECT_THROW(HoImageFile::write(image, path("taken.exr")), HoRenderError);
    EXPECT_EQ(names(), (std::vector<std::string>{"taken.exr"}));
    EXPECT_TRUE(fs::is_directory(path("taken.exr")));
    // The folder cannot be made: a file stands in its way.
    std::ofstream(path("file")) << "x";
    EXPECT_THROW(HoImageFile::write(image, path("file/x.exr")), HoRenderError);
}

TEST_F(RenderProgram, ReportsBadInputInOneLineAndLeavesNoFile) {
    std::string const exe = VNRENDER_PATH;
    auto [code, err] =
        runCommand(exe + " --width 8 --height 8 --format twelve -o " + path("a.exr"));
    EXPECT_EQ(code, 2);
    EXPECT_EQ(err, "vnrender: error: --format: twelve not in {uint8,half,float}\n");
    // A file stands where the output's folder should be.
    std::ofstream(path("in")) << "x";
    std::tie(code, err) = runCommand(exe + " --width 8 --height 8 -o " + path("in/b.exr"));
    EXPECT_EQ(code, 1);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_NE(err.find("vnrender: error: cannot write '" + path("in/b.exr") + "'"),
              std::string::npos)
        << err;
    for (auto const& name : names())
        EXPECT_EQ(name.find("partial"), std::string::npos) << name;
    // A good run prints nothing when not on a terminal.
    std::tie(code, err) = runCommand(exe + " --width 8 --height 8 -o " + path("ok.png"));
    EXPECT_EQ(code, 0);
    EXPECT_EQ(err, "");
    EXPECT_TRUE(fs::exists(path("ok.png")));
}

TEST_F(Render, TheGraphDumpShowsTheRenderedNodes) {
    HoRenderJob job = jobOf(16, 16, IxPixelFormat::FLOAT16, {path("f.####.exr")}, std::pair{5, 6});
    job.dagFile = job.defaultDagFile();
    EXPECT_EQ(job.dagFile, path("f.0005.dag.dot"));
    job.run();
    std::ifstream in(job.dagFile);
    std::string const dot((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(dot.rfind("digraph", 0), 0u) << dot;
    EXPECT_NE(dot.find("\"HoTestPatternNode"), std::string::npos) << dot;
    EXPECT_NE(dot.find("\"PxColorSourceNode"), std::string::npos) << dot;
    EXPECT_NE(dot.find("->\"HoOverNode"), std::string::npos) << dot;
    // The pattern is looped, then converted to the output's depth.
    EXPECT_NE(dot.find("\"PiImageRepeatNode"), std::string::npos) << dot;
    EXPECT_NE(dot.find("\"PiImageInputConvertNode"), std::string::npos) << dot;
    if (std::system("command -v dot >/dev/null 2>&1") == 0)
        EXPECT_GT(fs::file_size(path("f.0005.dag.png")), 100u);
    else
        EXPECT_FALSE(HoGraphDump::renderPng(job.dagFile, path("x.png")));
}

namespace {

// The renderer's picture as a composition of tools, its background red animated, frames 1-3.
class CompositionTest : public Render {
protected:
    void SetUp() override {
        Render::SetUp();
        HoTools::registerTools(HoToolRegistry::initialize());
        comp = HoComposition::create("comp");
        PxImageFormat const format(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                                   Rational(25));
        RCShdPtr<PiToolNode> const over = HoDefaultGraph::createTools(
            *comp.graph->getRootNode(), 40, 24, format, std::pair{0, 4});
        RCShdPtr<PiNode> const bg = comp.graph->getRootNode()->findNode("Background");
        PiTypedAnimInput<double> const red(bg->findInput("Red"));
        red.setKey(1.0 / 25.0, 0.1);
        red.setKey(3.0 / 25.0, 0.9);
        comp.last = 3;
        comp.depth = IxPixelFormat::FLOAT32;
        comp.outputs = {{over->getNodeName(), "Output", path("f.####.exr")}};
    }
    void TearDown() override {
        comp = {};
        HoToolRegistry::finalize();
        Render::TearDown();
    }
    static HoImage frame(HoComposition const& c, int f) {
        return HoRenderer::renderFrame(c.imageOf(c.outputs.front()), f / 25.0);
    }

    HoComposition comp;
};

} // namespace

// Written, read back and written again: the same text, the same pictures; the load is one
// undoable edit.
TEST_F(CompositionTest, RoundTripsToTheSameTextAndPictures) {
    std::string const text = comp.toXml();
    HoComposition const back = HoComposition::parse(text, "comp.xml");
    EXPECT_EQ(back.toXml(), text);
    for (int f = 1; f <= 3; ++f)
        EXPECT_TRUE(frame(back, f).pixels == frame(comp, f).pixels) << f;
    EXPECT_NE(frame(comp, 1).pixels, frame(comp, 3).pixels) << "the background animates";
    back.graph->getCommandStack().undo();
    EXPECT_EQ(back.graph->getRootNode()->getNodeCount(), 0);
    comp.save(path("comp.xml"));
    EXPECT_EQ(HoComposition::load(path("comp.xml")).toXml(), text);
}

// Bad files are refused by the program whole: exit code 1, one line that names the file and
// says what and where, and no output file.
TEST_F(CompositionTest, RefusesBadFilesWithOneClearMessage) {
    std::string const good = comp.toXml();
    auto edit = [&](std::string const& from, std::string const& to) {
        std::string t = good;
        std::size_t const at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? t : t.replace(at, from.size(), to);
    };
    struct Case {
        std::string text;
        std::string message; // after "vnrender: error: <file>: "
    };
    std::vector<Case> const cases = {
        {"<Composition version=\"1\"><Render",
         "malformed XML at line 1, column 32: Error parsing start element tag\n"},
        {"<Composition version=\"1\">\n  <Render first=\"1\" last=>",
         "malformed XML at line 2, column "},
        {edit("version=\"1\" name", "version=\"7\" name"),
         "the composition is of version 7; this program reads version 1 and older"},
        {edit("tool=\"Over\"", "tool=\"Overt\""),
         "archive: unknown tool \"Overt\" version \"1.0\"; the tools are Read, Test Pattern, Over"},
        {edit("<Value name=\"Value\" type=\"1\">1</Value>",
              "<Value name=\"Value\" type=\"1\">1.5</Value>"),
         "the value 1.5 of \"Background.Opacity\" is outside its range 0 to 1"},
        {edit("depth=\"float\"", "depth=\"deep\""), "the depth \"deep\" is not uint8"},
        {edit("f.####.exr\"", "f.####.exr\" compression=\"zap\""),
         "the compression \"zap\" of the output"},
        {edit("node=\"Over\"", "node=\"Under\""), "names the node \"Under\""},
        {edit("input=\"Front\" outputNode", "input=\"Width\" outputNode"), "archive: "},
        {edit("inputNode=\"4\" input=\"Source\" outputNode=\"1\"",
              "inputNode=\"4\" input=\"Source\" outputNode=\"17\""),
         "form a cycle"},
    };
    std::string const file = path("bad.xml");
    for (Case const& c : cases) {
        std::ofstream(file, std::ios::trunc) << c.text;
        auto const [code, err] =
            runCommand(std::string(VNRENDER_PATH) + " " + file + " -o " + path("x.exr"));
        EXPECT_EQ(code, 1) << c.message;
        std::string const head = "vnrender: error: " + file + ": ";
        EXPECT_EQ(err.substr(0, head.size()), head) << err;
        EXPECT_NE(err.find(c.message), std::string::npos) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_FALSE(fs::exists(path("x.exr"))) << c.message;
    }
}

// Every frame on its own: written files are skipped while newer than the composition, a
// missing one is made again, and a frame that fails leaves the others written.
TEST_F(CompositionTest, RendersFramesIndependentlyAndSkipsCompleteOnes) {
    // A second output of the same socket, without compression: its own files, the same pixels.
    comp.outputs.push_back({comp.outputs[0].node, "Output", path("g.####.exr"), "none"});
    comp = HoComposition::parse(comp.toXml(), "comp.xml");
    ASSERT_EQ(comp.outputs.at(1).compression, "none");
    HoCompositionRender render;
    HoCompositionRender::Result r = render.run(comp);
    EXPECT_EQ(r.rendered, (std::vector<int>{1, 2, 3}));
    for (auto [file, compression] : {std::pair{"f.0002.exr", "zip"}, {"g.0002.exr", "none"}}) {
        auto in = OIIO::ImageInput::create(path(file));
        OIIO::ImageSpec header;
        ASSERT_TRUE(in && in->open(path(file), header)) << file;
        EXPECT_EQ(header.get_string_attribute("compression"), compression) << file;
    }
    EXPECT_EQ(HoImageFile::read(path("g.0002.exr")).pixels,
              HoImageFile::read(path("f.0002.exr")).pixels);
    comp.outputs.pop_back();
    auto expectFrame = [&](char const* file, int f) {
        HoImage const got = HoImageFile::read(path(file));
        HoImage const want = frame(comp, f);
        ASSERT_EQ(got.width, want.width) << file;
        for (int y = 0; y < want.height; ++y)
            for (int x = 0; x < want.width; ++x)
                expectNear(got.getColor(x, y), want.getColor(x, y), 0.0f, file);
    };
    expectFrame("f.0002.exr", 2);

    render.skipExisting = true;
    render.since = HoCompositionRender::modificationTime(path("f.0001.exr")) - 1.0;
    EXPECT_EQ(render.run(comp).skipped, (std::vector<int>{1, 2, 3}));
    // Frame 1 is written while frame 3 renders, across the skipped frame 2.
    fs::remove(path("f.0001.exr"));
    fs::remove(path("f.0003.exr"));
    r = render.run(comp);
    EXPECT_EQ(r.rendered, (std::vector<int>{1, 3}));
    EXPECT_EQ(r.skipped, (std::vector<int>{2}));
    expectFrame("f.0001.exr", 1);
    render.since += 3600.0; // the composition changed after the files
    EXPECT_EQ(render.run(comp).rendered, (std::vector<int>{1, 2, 3}));

    render.skipExisting = false;
    fs::remove(path("f.0003.exr"));
    fs::create_directories(path("f.0003.exr")); // frame 3 cannot be written
    render.frames = std::pair{2, 3};
    r = render.run(comp);
    EXPECT_EQ(r.rendered, (std::vector<int>{2}));
    ASSERT_EQ(r.failed.size(), 1u);
    EXPECT_EQ(r.failed[0].first, 3);
}

// The program: a composition renders, --describe shows it, and a failed frame sets exit code 3
// while the others are written.
TEST_F(CompositionTest, TheProgramRendersDescribesAndReports) {
    std::string const exe = VNRENDER_PATH;
    comp.save(path("comp.xml"));
    auto [code, err] = runCommand(exe + " " + path("comp.xml") + " --frames 2-3");
    EXPECT_EQ(code, 0) << err;
    EXPECT_EQ(names(), (std::vector<std::string>{"comp.xml", "f.0002.exr", "f.0003.exr"}));
    std::tie(code, err) =
        runCommand(exe + " " + path("comp.xml") + " --describe > " + path("out.txt"));
    EXPECT_EQ(code, 0) << err;
    std::ifstream in(path("out.txt"));
    std::string const text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text.substr(0, text.find('\n')),
              "composition \"comp\": frames 1-3 at 25 frames a second, written as float");
    EXPECT_NE(text.find("  Back <- Background.Output\n"), std::string::npos) << text;

    fs::create_directories(path("g.0002.exr"));
    std::tie(code, err) =
        runCommand(exe + " " + path("comp.xml") + " --frames 1-2 -o " + path("g.####.exr"));
    EXPECT_EQ(code, 3);
    EXPECT_NE(err.find("vnrender: error: frame 2: "), std::string::npos) << err;
    EXPECT_NE(err.find("vnrender: 1 of 2 frames failed\n"), std::string::npos) << err;
    EXPECT_TRUE(fs::exists(path("g.0001.exr")));
}

// A composition as a user builds one: a five-frame EXR sequence read, moved three pixels by a
// Transform, graded through a half-strength mask, over a constant colour, blurred; rendered by
// the program and compared, frame by frame, with the same steps computed here.
TEST_F(CompositionTest, ReadsPlatesAndRendersThemThroughTools) {
    constexpr int kW = 32, kH = 16, kShift = 3;
    // Half plates, as stored: the tools raise them to float once, so that the float output
    // differs from the computation below only by float rounding.
    auto plate = [](int x, int y, int f) {
        float const a = 0.25f + 0.5f * float((x + y) % 2);
        float c[4] = {a * float(x) / kW, a * float(y) / kH, a * float(f) / 5.0f, a};
        std::uint16_t h[4];
        IxConvertUtil::floatsToHalves(h, c, 4);
        IxConvertUtil::halvesToFloats(c, h, 4);
        return Color{c[0], c[1], c[2], c[3]};
    };
    for (int f = 1; f <= 5; ++f) {
        HoImage img;
        img.width = kW;
        img.height = kH;
        img.format = IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT16);
        img.pixels.resize(img.getLineSize() * kH);
        auto* px = reinterpret_cast<std::uint16_t*>(img.pixels.data());
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                Color const p = plate(x, y, f);
                IxConvertUtil::floatsToHalves(px + 4 * (y * kW + x), &p.r, 4);
            }
        HoImageFile::write(img, HoImageFile::expandFramePattern(path("plate.####.exr"), f));
    }
    HoComposition c = HoComposition::create("plates");
    RCShdPtr<PiGroupNode> const root = c.graph->getRootNode();
    auto set = [](RCShdPtr<PiNode> const& n, std::string const& input, auto v) {
        RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
        rcCast<PiTypedValue<decltype(v)>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
    };
    {
        PiUndoGuard guard(*c.graph, "Build");
        RCShdPtr<PiToolNode> const read = root->createToolNode(HoTools::read(), "Read");
        rcCast<PiTypedValue<std::string>>(read->findValue("File"))->set(path("plate.####.exr"));
        rcCast<PiTypedValue<int>>(read->findValue("First"))->set(1);
        rcCast<PiTypedValue<int>>(read->findValue("Last"))->set(5);
        RCShdPtr<PiToolNode> const move = root->createToolNode(HoTools::transform(), "Move");
        set(move, "Translation.X", double(kShift));
        set(move, "Filter", int(SdTextureTypes::FILTER_NEAREST));
        RCShdPtr<PiToolNode> const half = root->createToolNode(HoTools::colorSource(), "Half");
        set(half, "Width", kW + kShift);
        set(half, "Height", kH);
        set(half, "Opacity", 0.5);
        RCShdPtr<PiToolNode> const grade = root->createToolNode(HoTools::grade(), "Grade");
        set(grade, "Gain.Red", 2.0);
        set(grade, "Offset.Blue", 0.125);
        RCShdPtr<PiToolNode> const bg = root->createToolNode(HoTools::colorSource(), "Constant");
        set(bg, "Width", kW + kShift);
        set(bg, "Height", kH);
        set(bg, "Red", 0.5);
        set(bg, "Green", 0.25);
        set(bg, "Blue", 0.0);
        RCShdPtr<PiToolNode> const over = root->createToolNode(HoTools::over(), "Over");
        move->findInput("Source")->connect(read->findOutput("Output"));
        grade->findInput("Source")->connect(move->findOutput("Output"));
        grade->findInput("Mask")->connect(half->findOutput("Output"));
        over->findInput("Front")->connect(grade->findOutput("Output"));
        over->findInput("Back")->connect(bg->findOutput("Output"));
        RCShdPtr<PiToolNode> const blur = root->createToolNode(HoTools::blur(), "Soften");
        set(blur, "Size", 2.0);
        blur->findInput("Source")->connect(over->findOutput("Output"));
    }
    c.last = 5;
    c.depth = IxPixelFormat::FLOAT32;
    c.outputs = {{"Soften", "Output", path("comp.####.exr")}};
    c.save(path("plates.xml"));
    auto const [code, err] = runCommand(std::string(VNRENDER_PATH) + " " + path("plates.xml"));
    ASSERT_EQ(code, 0) << err;
    // The blur of size 2: a Gaussian of deviation 1 reaching 3 pixels, over transparency outside.
    constexpr int kReach = 3, kOutW = kW + kShift, kBlurW = kOutW + 2 * kReach;
    double gauss[2 * kReach + 1], total = 0.0;
    for (int k = -kReach; k <= kReach; ++k)
        total += gauss[k + kReach] = std::exp(-0.5 * k * k);
    for (int f = 1; f <= 5; ++f) {
        std::vector<Color> over(std::size_t(kOutW * kH));
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kOutW; ++x) {
                Color const s = x >= kShift ? plate(x - kShift, y, f) : Color{0, 0, 0, 0};
                Color const g{s.r * 2.0f, s.g, s.b + 0.125f, s.a};
                Color const m{(g.r - s.r) * 0.5f + s.r, (g.g - s.g) * 0.5f + s.g,
                              (g.b - s.b) * 0.5f + s.b, (g.a - s.a) * 0.5f + s.a};
                over[std::size_t(y * kOutW + x)] = HoOverNode::over(m, {0.5f, 0.25f, 0.0f, 1.0f});
            }
        HoImage const got =
            HoImageFile::read(HoImageFile::expandFramePattern(path("comp.####.exr"), f));
        ASSERT_EQ(got.width, kBlurW) << f;
        ASSERT_EQ(got.height, kH + 2 * kReach) << f;
        for (int y = 0; y < got.height; ++y)
            for (int x = 0; x < kBlurW; ++x) {
                double sum[4] = {};
                for (int j = -kReach; j <= kReach; ++j)
                    for (int i = -kReach; i <= kReach; ++i) {
                        int const ox = x - kReach + i, oy = y - kReach + j;
                        if (ox < 0 || ox >= kOutW || oy < 0 || oy >= kH)
                            continue;
                        double const w = gauss[i + kReach] * gauss[j + kReach] / (total * total);
                        Color const& o = over[std::size_t(oy * kOutW + ox)];
                        sum[0] += w * o.r, sum[1] += w * o.g, sum[2] += w * o.b, sum[3] += w * o.a;
                    }
                Color const want{float(sum[0]), float(sum[1]), float(sum[2]), float(sum[3])};
                expectNear(got.getColor(x, y), want, 1e-6f,
                           "frame " + std::to_string(f) + " at " + std::to_string(x) + "," +
                               std::to_string(y));
            }
    }
    // A plate missing, and one damaged (its first attribute said to be 2 GB long): one line
    // naming the file and frame, and no output for that frame. All that the program prints, on
    // either stream, is that line and the count.
    fs::remove(path("plate.0004.exr"));
    std::string damaged = get("plate.0005.exr");
    damaged.replace(damaged.find('\0', damaged.find('\0', 8) + 1) + 1, 4,
                    std::string("\x00\xff\xff\x7f", 4));
    put("plate.0005.exr", damaged);
    for (auto const& [f, why] : {std::pair{4, ""}, {5, "runs past the file's end"}}) {
        auto const [code2, err2] =
            runCommand("{ " + std::string(VNRENDER_PATH) + " " + path("plates.xml") + " --frames " +
                       std::to_string(f) + " -o " + path("bad.exr") + " 1>&2; }");
        EXPECT_EQ(code2, 3) << err2;
        EXPECT_EQ(std::count(err2.begin(), err2.end(), '\n'), 2) << err2;
        EXPECT_NE(err2.find("vnrender: error: frame " + std::to_string(f) + ": "),
                  std::string::npos)
            << err2;
        EXPECT_NE(err2.find("plate.000" + std::to_string(f) + ".exr"), std::string::npos) << err2;
        EXPECT_NE(err2.find(why), std::string::npos) << err2;
        EXPECT_FALSE(fs::exists(path("bad.exr")));
    }
}
