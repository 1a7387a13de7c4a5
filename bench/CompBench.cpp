// The whole job, timed as whole processes: twenty 1920 x 1080 half-float plates read, turned
// about their centre and moved, graded, put over a constant colour, blurred and written as
// half-float files; by vnrender from a composition, by oiiotool with its operators, and by the
// same pipeline written with libvips (this program, started again with --vips-job). Each writes
// its own frames, uncompressed (libvips as float TIFF, having no EXR writer); frame 10 of each is
// compared with vnrender's (largest difference inside a margin, where the three treat the frame's
// edge alike) so that the work is the same. Prints frames per second per run and our time over each
// reference's (lower is better).

#include "BenchRatio.h"

#include "HoComposition.h"
#include "HoGraph.h"
#include "HoToolRegistry.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiSockets.h"
#include "SdTexture.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <vips/vips.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

using namespace Vn;
namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 1920, kHeight = 1080, kFrames = 20, kMargin = 16;
constexpr double kDegrees = 5.0, kMoveX = 12.5, kMoveY = 7.25, kGain = 1.2, kOffset = 0.01;
// Our blur size 3 is a Gaussian of deviation 1.5.
constexpr double kBlurSize = 3.0, kSigma = kBlurSize / 2;
constexpr float kBack[4] = {0.2f, 0.3f, 0.4f, 1.0f};
constexpr double kPi = 3.14159265358979323846;

fs::path const& folder() {
    static fs::path const dir =
        fs::temp_directory_path() / ("vn_comp_bench_" + std::to_string(::getpid()));
    return dir;
}

std::string plate(int frame, fs::path const& dir = folder()) {
    char name[32];
    std::snprintf(name, sizeof name, "plate.%04d.exr", frame);
    return (dir / name).string();
}

// Premultiplied plates: smooth colour ramps that move with the frame, with a soft-edged hole in
// the alpha so that the composite shows through.
void writePlates() {
    fs::create_directories(folder());
    OIIO::ImageSpec header(kWidth, kHeight, 4, OIIO::TypeDesc::HALF);
    header.alpha_channel = 3;
    for (int f = 1; f <= kFrames; ++f) {
        OIIO::ImageBuf buf(header);
        std::vector<float> row(std::size_t(kWidth) * 4);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                double const dx = (x - kWidth / 2.0) / 300.0, dy = (y - kHeight / 2.0) / 200.0;
                float const a = float(std::min(1.0, std::max(0.0, dx * dx + dy * dy - 0.5)));
                float* p = &row[std::size_t(x) * 4];
                p[0] = a * float(0.5 + 0.5 * std::sin((x + 7 * f) * 0.01));
                p[1] = a * float(y) / kHeight;
                p[2] = a * float(0.5 + 0.5 * std::cos((x + y) * 0.003 + f * 0.1));
                p[3] = a;
            }
            buf.set_pixels(OIIO::ROI(0, kWidth, y, y + 1), OIIO::TypeDesc::FLOAT, row.data());
        }
        if (!buf.write(plate(f)))
            throw std::runtime_error(buf.geterror());
    }
}

// The composition vnrender renders.
void writeComposition() {
    InInitMgr::getInstance().initialize();
    HoTools::registerTools(HoToolRegistry::initialize());
    {
        HoComposition c = HoComposition::create("bench");
        RCShdPtr<PiGroupNode> const root = c.graph->getRootNode();
        auto set = [](RCShdPtr<PiNode> const& n, std::string const& input, auto v) {
            RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
            rcCast<PiTypedValue<decltype(v)>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
        };
        PiUndoGuard guard(*c.graph, "Build");
        RCShdPtr<PiToolNode> const read = root->createToolNode(HoTools::read(), "Plate");
        rcCast<PiTypedValue<std::string>>(read->findValue("File"))
            ->set((folder() / "plate.####.exr").string());
        rcCast<PiTypedValue<int>>(read->findValue("First"))->set(1);
        rcCast<PiTypedValue<int>>(read->findValue("Last"))->set(kFrames);
        RCShdPtr<PiToolNode> const move = root->createToolNode(HoTools::transform(), "Move");
        set(move, "Translation.X", kMoveX);
        set(move, "Translation.Y", kMoveY);
        set(move, "Rotation", kDegrees);
        set(move, "Pivot.X", kWidth / 2.0);
        set(move, "Pivot.Y", kHeight / 2.0);
        set(move, "Filter", int(SdTextureTypes::FILTER_BILINEAR));
        RCShdPtr<PiToolNode> const grade = root->createToolNode(HoTools::grade(), "Grade");
        for (char const* channel : {"Red", "Green", "Blue"}) {
            set(grade, std::string("Gain.") + channel, kGain);
            set(grade, std::string("Offset.") + channel, kOffset);
        }
        RCShdPtr<PiToolNode> const back = root->createToolNode(HoTools::colorSource(), "Back");
        set(back, "Width", kWidth);
        set(back, "Height", kHeight);
        set(back, "Red", double(kBack[0]));
        set(back, "Green", double(kBack[1]));
        set(back, "Blue", double(kBack[2]));
        RCShdPtr<PiToolNode> const over = root->createToolNode(HoTools::over(), "Over");
        RCShdPtr<PiToolNode> const blur = root->createToolNode(HoTools::blur(), "Blur");
        set(blur, "Size", kBlurSize);
        RCShdPtr<PiToolNode> const crop = root->createToolNode(HoTools::crop(), "Crop");
        set(crop, "Crop.Mode", 2);
        set(crop, "Crop.Absolute.Right", kWidth);
        set(crop, "Crop.Absolute.Top", kHeight);
        move->findInput("Source")->connect(read->findOutput("Output"));
        grade->findInput("Source")->connect(move->findOutput("Output"));
        over->findInput("Front")->connect(grade->findOutput("Output"));
        over->findInput("Back")->connect(back->findOutput("Output"));
        blur->findInput("Source")->connect(over->findOutput("Output"));
        crop->findInput("Source")->connect(blur->findOutput("Output"));
        c.last = kFrames;
        c.depth = IxPixelFormat::FLOAT16;
        c.outputs = {{"Crop", "Output", (folder() / "ours.####.exr").string(), "none"}};
        c.save((folder() / "comp.xml").string());
    }
    HoToolRegistry::finalize();
    InInitMgr::getInstance().finalize();
}

void prepare() {
    static bool const done = [] {
        writePlates();
        writeComposition();
        return true;
    }();
    (void)done;
}

// Our turn, in the files' rows-down coordinates: counterclockwise on screen about the centre,
// then moved right and up. As the source-to-destination matrix of oiiotool's warp.
std::string warpMatrix() {
    double const a = kDegrees * kPi / 180.0, c = std::cos(a), s = std::sin(a);
    double const cx = kWidth / 2.0, cy = kHeight / 2.0;
    // x' = cx + c (x - cx) + s (y - cy) + mx; y' = cy - s (x - cx) + c (y - cy) - my.
    double const tx = cx - c * cx - s * cy + kMoveX, ty = cy + s * cx - c * cy - kMoveY;
    char m[256];
    std::snprintf(m, sizeof m, "%.17g,%.17g,0,%.17g,%.17g,0,%.17g,%.17g,1", c, -s, s, c, tx, ty);
    return m;
}

int run(std::string const& command) {
    int const status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string selfPath() {
    return fs::read_symlink("/proc/self/exe").string();
}

// The largest difference of frame 10 from vnrender's, inside the margin.
double largestDifference(std::string const& file) {
    OIIO::ImageBuf ours((folder() / "ours.0010.exr").string());
    OIIO::ImageBuf theirs(file);
    OIIO::ROI const inside(kMargin, kWidth - kMargin, kMargin, kHeight - kMargin, 0, 1, 0, 4);
    std::vector<float> a(std::size_t(inside.npixels()) * 4), b(a.size());
    if (!ours.get_pixels(inside, OIIO::TypeDesc::FLOAT, a.data()) ||
        !theirs.get_pixels(inside, OIIO::TypeDesc::FLOAT, b.data()))
        return -1.0;
    double worst = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        worst = std::max(worst, double(std::abs(a[i] - b[i])));
    return worst;
}

void timeProcess(benchmark::State& state, std::string const& command, char const* output) {
    prepare();
    for (auto _ : state) {
        auto const start = std::chrono::steady_clock::now();
        int const code = run(command);
        std::chrono::duration<double> const took = std::chrono::steady_clock::now() - start;
        if (code != 0) {
            state.SkipWithError(("exit code " + std::to_string(code) + ": " + command).c_str());
            return;
        }
        state.SetIterationTime(took.count());
        state.counters["fps"] = kFrames / took.count();
    }
    if (output)
        state.counters["largest_difference"] = largestDifference((folder() / output).string());
}

void Vnrender(benchmark::State& state) {
    timeProcess(state,
                std::string(VNRENDER_PATH) + " " + (folder() / "comp.xml").string() +
                    " --quiet --threads " + std::to_string(state.range(0)),
                nullptr);
}

void Oiiotool(benchmark::State& state) {
    std::string const back = "constant:color=" + std::to_string(kBack[0]) + "," +
                             std::to_string(kBack[1]) + "," + std::to_string(kBack[2]) + ",1";
    char blur[64];
    // Its Gaussian of width w has deviation w / 4; the kernel is cut at 3 deviations as ours.
    std::snprintf(blur, sizeof blur, "%dx%d", int(4 * kSigma), int(4 * kSigma));
    std::string const gain = std::to_string(kGain), offset = std::to_string(kOffset);
    timeProcess(state,
                "oiiotool --threads " + std::to_string(state.range(0)) + " --frames 1-" +
                    std::to_string(kFrames) + " " + (folder() / "plate.#.exr").string() +
                    " --warp:filter=triangle " + warpMatrix() + " --mulc " + gain + "," + gain +
                    "," + gain + ",1 --addc " + offset + "," + offset + "," + offset +
                    ",0 --pattern " + back + " " + std::to_string(kWidth) + "x" +
                    std::to_string(kHeight) + " 4 --over --blur " + blur +
                    " -d half --compression none -o " + (folder() / "oiio.#.exr").string(),
                "oiio.0010.exr");
}

void Libvips(benchmark::State& state) {
    timeProcess(state,
                selfPath() + " --vips-job " + folder().string() + " " +
                    std::to_string(state.range(0)),
                "vips.0010.tif");
}

// The libvips pipeline, one frame after the other, its own threads inside each.
int vipsJob(fs::path const& dir, int threads) {
    if (VIPS_INIT("CompBench"))
        return 1;
    vips_concurrency_set(threads);
    double const a = kDegrees * kPi / 180.0, c = std::cos(a), s = std::sin(a);
    double const cx = kWidth / 2.0, cy = kHeight / 2.0;
    // Its EXR reader gives alpha from 0 to 255, as its colour conventions want: back to 0 to 1
    // in the grade's multiply. The colour is as stored, premultiplied, so the turn leaves alpha
    // alone.
    double const gain[4] = {kGain, kGain, kGain, 1.0 / 255},
                 offset[4] = {kOffset, kOffset, kOffset, 0};
    double const zero[4] = {0, 0, 0, 0}, back[4] = {kBack[0], kBack[1], kBack[2], kBack[3]};
    for (int f = 1; f <= kFrames; ++f) {
        char name[32];
        std::snprintf(name, sizeof name, "vips.%04d.tif", f);
        VipsImage* in = vips_image_new_from_file(plate(f, dir).c_str(), nullptr);
        VipsImage *turned = nullptr, *graded = nullptr, *black = nullptr, *constant = nullptr,
                  *alpha = nullptr, *clear = nullptr, *backdrop = nullptr, *over = nullptr,
                  *blurred = nullptr;
        VipsInterpolate* bilinear = vips_interpolate_new("bilinear");
        VipsArrayInt* area = vips_array_int_newv(4, 0, 0, kWidth, kHeight);
        bool const ok = in &&
                        !vips_affine(in, &turned, c, s, -s, c, "premultiplied", TRUE, "interpolate",
                                     bilinear, "oarea", area, "idx", -cx, "idy", -cy, "odx",
                                     cx + kMoveX, "ody", cy - kMoveY, nullptr) &&
                        !vips_linear(turned, &graded, gain, offset, 4, nullptr) &&
                        !vips_black(&black, kWidth, kHeight, "bands", 4, nullptr) &&
                        !vips_linear(black, &constant, zero, back, 4, nullptr) &&
                        // Over on premultiplied pixels: front + back * (1 - front alpha).
                        !vips_extract_band(graded, &alpha, 3, nullptr) &&
                        !vips_linear1(alpha, &clear, -1.0, 1.0, nullptr) &&
                        !vips_multiply(constant, clear, &backdrop, nullptr) &&
                        !vips_add(graded, backdrop, &over, nullptr) &&
                        !vips_gaussblur(over, &blurred, kSigma, "min_ampl", 0.011, "precision",
                                        VIPS_PRECISION_FLOAT, nullptr) &&
                        !vips_image_write_to_file(blurred, (dir / name).c_str(), nullptr);
        vips_area_unref(VIPS_AREA(area));
        for (void* o :
             {(void*)in, (void*)turned, (void*)graded, (void*)black, (void*)constant, (void*)alpha,
              (void*)clear, (void*)backdrop, (void*)over, (void*)blurred, (void*)bilinear})
            if (o)
                g_object_unref(o);
        if (!ok) {
            std::fprintf(stderr, "libvips: %s\n", vips_error_buffer());
            return 1;
        }
    }
    vips_shutdown();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--vips-job")
        return vipsJob(argv[2], std::atoi(argv[3]));
    std::vector<VnBench::RatioPair> pairs;
    std::vector<std::string> names;
    names.reserve(6);
    for (int threads : {1, 2}) {
        std::string const suffix = "/threads:" + std::to_string(threads);
        for (auto [name, job] : {std::pair{"Vnrender", &Vnrender}, std::pair{"Oiiotool", &Oiiotool},
                                 std::pair{"Libvips", &Libvips}})
            benchmark::RegisterBenchmark(names.emplace_back(name + suffix).c_str(), job)
                ->Arg(threads)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(1);
        std::size_t const at = names.size() - 3;
        pairs.push_back({"vnrender / oiiotool", names[at].c_str(), names[at + 1].c_str()});
        pairs.push_back({"vnrender / libvips", names[at].c_str(), names[at + 2].c_str()});
    }
    int const code = VnBench::runWithRatios(argc, argv, pairs);
    std::error_code ignored;
    if (!std::getenv("KEEPX"))
        fs::remove_all(folder(), ignored);
    return code;
}
