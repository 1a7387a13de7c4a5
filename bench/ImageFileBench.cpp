// A sequence of ten 4096 x 2160 RGBA half EXR frames read and rendered through the image file
// source and the engine, tile by tile into one frame in memory, against the image library's own
// ImageBuf reading the same frames into memory. Reading is I/O and decode on both sides: the
// ratio shows what the engine adds; the host's file read alone shows the I/O and decode part.
// Prints our time over the reference's (lower is better). The CPU column is the whole process's,
// workers included: on a busy machine it is the steadier measure.

#include "BenchRatio.h"

#include "HoImageFiles.h"
#include "HoRender.h"
#include "InPackageInit.h"
#include "PxImageRequests.h"
#include "PxRequestMgr.h"

#include <OpenImageIO/imagebuf.h>

#include <filesystem>
#include <unistd.h>

using namespace Vn;

namespace {

constexpr int kWidth = 4096;
constexpr int kHeight = 2160;
constexpr int kFrames = 10;

std::filesystem::path const& folder() {
    static std::filesystem::path const dir = std::filesystem::temp_directory_path() /
                                             ("vn_image_file_bench_" + std::to_string(::getpid()));
    return dir;
}

std::string pattern() {
    return (folder() / "plate.####.exr").string();
}

void writeFrames() {
    std::filesystem::create_directories(folder());
    OIIO::ImageSpec header(kWidth, kHeight, 4, OIIO::TypeDesc::HALF);
    header.alpha_channel = 3;
    std::vector<float> row(static_cast<std::size_t>(kWidth) * 4);
    for (int f = 1; f <= kFrames; ++f) {
        std::string const path = HoImageFile::expandFramePattern(pattern(), f);
        auto out = OIIO::ImageOutput::create(path);
        out->open(path, header);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x)
                for (int c = 0; c < 4; ++c)
                    row[static_cast<std::size_t>(x) * 4 + c] =
                        static_cast<float>((x * 3 + y * 5 + f * 7 + c) % 1024) / 1024.0f;
            out->write_scanline(y, 0, OIIO::TypeDesc::FLOAT, row.data());
        }
        out->close();
    }
}

void BM_SourceNodeRender(benchmark::State& st) {
    std::string const description = "<NumberedSequence pattern='" + pattern() +
                                    "' first='1' last='" + std::to_string(kFrames) + "'/>";
    std::shared_ptr<PiImageSequence const> const sequence(
        PiImageSequence::createFromText(description, "bench").release());
    for (auto _ : st) {
        // A new node each time: every frame is read from its file again.
        PxStrongHndl<HoImageFileNode> node(new HoImageFileNode(PxNode::Init{"file"}, sequence));
        PxNode::init(PxStrongHndl<PxNode>(node));
        PxStrongHndl<PxImageProtocol const> const image(node.get());
        double const rate = image->getImageFormat().getFrameRate().toDouble();
        for (int f = 0; f < kFrames; ++f) {
            HoImage const frame = HoRenderer::renderFrame(image, f / rate);
            benchmark::DoNotOptimize(frame.pixels.data());
        }
    }
    st.counters["fps"] =
        benchmark::Counter(double(st.iterations()) * kFrames, benchmark::Counter::kIsRate);
}

// The engine's read alone: every tile of each frame requested through the engine and held, the
// frame in memory in the engine's own form, without the batch renderer's copy into one buffer.
void BM_SourceNodeTiles(benchmark::State& st) {
    std::string const description = "<NumberedSequence pattern='" + pattern() +
                                    "' first='1' last='" + std::to_string(kFrames) + "'/>";
    std::shared_ptr<PiImageSequence const> const sequence(
        PiImageSequence::createFromText(description, "bench").release());
    for (auto _ : st) {
        PxStrongHndl<HoImageFileNode> node(new HoImageFileNode(PxNode::Init{"file"}, sequence));
        PxNode::init(PxStrongHndl<PxNode>(node));
        PxUPtr<PxImageProtocol const> const image{PxStrongHndl<PxImageProtocol const>(node.get())};
        double const rate = node->getImageFormat().getFrameRate().toDouble();
        for (int f = 0; f < kFrames; ++f) {
            PxRequestPtr<PxImageMultiTileRequest> request(
                new PxImageMultiTileRequest(image, 0, PxTimeInfo(f / rate), 0));
            PxRequestMgr::getInstance().executeRequest(request.get(), false);
            benchmark::DoNotOptimize(request->getResults()->size());
        }
    }
}

// The host's file alone, read into one frame in memory: what the source node pays for I/O and
// decode.
void BM_FileRead(benchmark::State& st) {
    for (auto _ : st) {
        for (int f = 1; f <= kFrames; ++f) {
            OPtr<HoOiioImageFile> file =
                HoOiioImageFile::openForReading(HoImageFile::expandFramePattern(pattern(), f));
            ImFormat const fm = file->getFormat();
            ImImage image = ImImage::create(ImLayout(fm.getPixelFormat(), fm.getRegion()));
            file->readImage(fm.getRegion(), image);
            benchmark::DoNotOptimize(image.getBuffer());
        }
    }
}
void BM_ImageBufRead(benchmark::State& st) {
    for (auto _ : st) {
        for (int f = 1; f <= kFrames; ++f) {
            OIIO::ImageBuf buf(HoImageFile::expandFramePattern(pattern(), f));
            buf.read(0, 0, true, OIIO::TypeDesc::HALF);
            benchmark::DoNotOptimize(buf.localpixels());
        }
    }
    st.counters["fps"] =
        benchmark::Counter(double(st.iterations()) * kFrames, benchmark::Counter::kIsRate);
}

BENCHMARK(BM_SourceNodeRender)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);
BENCHMARK(BM_SourceNodeTiles)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);
BENCHMARK(BM_ImageBufRead)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);
BENCHMARK(BM_FileRead)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    HoNumberedSequence::registerKind();
    writeFrames();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"10 frames 4096x2160 RGBA half EXR: source node through the engine / ImageBuf read",
          "BM_SourceNodeRender", "BM_ImageBufRead"},
         {"the same frames' tiles through the engine, held as they come / ImageBuf read",
          "BM_SourceNodeTiles", "BM_ImageBufRead"},
         {"the same frames read by the host's file alone / ImageBuf read", "BM_FileRead",
          "BM_ImageBufRead"}});
    std::filesystem::remove_all(folder());
    InInitMgr::getInstance().finalize();
    return rc;
}
