// The image conversion nodes on a 512 x 512 RGBA tile, each asked for one tile through the
// engine as a consumer would:
//  - FormatConverter UINT8 -> FLOAT32, FLOAT32 -> FLOAT16 and FLOAT32 -> UINT8, against a
//    memcpy of the output's bytes and against OpenCV (convertTo, convertFp16);
//  - AspectConverter halving the width with the Lanczos3 filter (FLOAT32), against libvips
//    reduceh with its lanczos3 kernel on one thread, its operation cache off.
//  - the 8-bit conversions on the SSE2 path, against the best path the processor has;
//  - one 512-pixel RGBA row converted over and over, in the first-level cache as the pixel
//    loops convert it, on each vector path.
// A NoOpConverter, which only forwards, shows the engine's own share of each request, and
// ipFormatChange between tiles made once the conversion's.
// Prints our time over each reference's (lower is better).

#include "BenchRatio.h"

#include "InPackageInit.h"
#include "IxConvertUtil.h"
#include "IxGuardBase.h"
#include "IxImageOps.h"
#include "PiImageConvertNode.h"
#include "PxImageRequests.h"

#include <opencv2/core.hpp>
#include <vips/vips.h>

#include <cstring>
#include <functional>
#include <vector>

using namespace Vn;

namespace {

constexpr int kSide = 512;

// A tile made once, given for tile (0, 0).
class TileSource final : public PxImageProtocol {
public:
    TileSource(PxImageFormat const& format, IxTile tile)
        : PxNode(Init{"tile source"}), _format(format), _tile(std::move(tile)) {}
    PxImageFormat getImageFormat() const override { return _format; }
    PxRODResult getImageROD(PxTimeStreamContext const&) const override {
        return {pixelizedToNominal({0, kSide, 0, kSide}, _format.getAspectRatio(), 1.0f),
                PxValidityInterval::FULL};
    }
    PxImageResult getImageResult(PxImageContext const& c) const override {
        if (c.isOutside())
            return {allocateEmptyImageBuffer(), PxValidityInterval::FULL};
        return {_tile, PxValidityInterval::FULL};
    }
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }

private:
    PxImageFormat _format;
    IxTile _tile;
};

class RunRequest final : public PxQueryRequest<bool> {
public:
    explicit RunRequest(std::function<void()> fn) : _fn(std::move(fn)) {}
    void performExecute() override {
        _fn();
        setResult(true);
    }
    void wait() const { waitResult(); }

private:
    std::function<void()> _fn;
};

void onWorker(std::function<void()> fn) {
    PxRequestPtr<RunRequest> r(new RunRequest(std::move(fn)));
    PxRequestMgr::getInstance().executeRequest(r.get(), false);
    r->wait();
}

PxImageFormat format(IxPixelFormat::Depth depth, Rational aspect = Rational(1)) {
    return PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, depth, aspect), Rational(25));
}

// A tile of varied values in [0, 1].
IxTile sourceTile(IxPixelFormat const& f) {
    IxTile t(f, {0, kSide, 0, kSide}, {});
    IxWriteGuard const w(t);
    IpPixels const p = ipPixelsOf(w);
    std::vector<CoRgbaColorTyped<float>> line(kSide);
    for (int y = 0; y < kSide; ++y) {
        for (int x = 0; x < kSide; ++x)
            line[static_cast<std::size_t>(x)] = {float((x * 7 + y) % 256) / 255.0f,
                                                 float((x + y * 3) % 256) / 255.0f,
                                                 float((x ^ y) % 256) / 255.0f, 1.0f};
        IxConvertUtil::writeTo(p.address(0, y), line.data(), kSide, p.format);
    }
    return t;
}

void runConverter(benchmark::State& st, PxImageFormat const& from, PxImageFormat const& to) {
    PxStrongHndl<PxImageProtocol const> source(
        new TileSource(from, sourceTile(from.getPixelFormat())));
    PxNodePtr<PiImageConvertNode> converter;
    onWorker([&] {
        converter = PiImageConvertNode::create(PxNodePtr<PxImageProtocol const>(source), from, to);
    });
    PxUPtr<PxImageProtocol const> const node(converter);
    PxImageContext const context(0.0, {0, 0}, 0, 0);
    std::size_t bytes = 0;
    for (auto _ : st) {
        PxRequestPtr<PxImageTileRequest> r(new PxImageTileRequest(node, context));
        PxRequestMgr::getInstance().executeRequest(r.get(), false);
        GeRectangle<int> const& region = r->getResult().getPixelRegion();
        bytes = static_cast<std::size_t>(region.width()) * region.height() *
                to.getPixelFormat().getPixelSize();
        benchmark::DoNotOptimize(bytes);
    }
    st.SetBytesProcessed(static_cast<std::int64_t>(st.iterations() * bytes));
    onWorker([&] { converter.reset(); });
}

void BM_Format_U8_F32(benchmark::State& st) {
    runConverter(st, format(IxPixelFormat::UINT8), format(IxPixelFormat::FLOAT32));
}
void BM_Format_F32_F16(benchmark::State& st) {
    runConverter(st, format(IxPixelFormat::FLOAT32), format(IxPixelFormat::FLOAT16));
}
void BM_Format_F32_U8(benchmark::State& st) {
    runConverter(st, format(IxPixelFormat::FLOAT32), format(IxPixelFormat::UINT8));
}
// The engine's share: one tile request through a converter that only forwards.
void BM_NoOp_F32(benchmark::State& st) {
    runConverter(st, format(IxPixelFormat::FLOAT32), format(IxPixelFormat::FLOAT32));
}
void BM_Aspect_F32_Halve(benchmark::State& st) {
    runConverter(st, format(IxPixelFormat::FLOAT32), format(IxPixelFormat::FLOAT32, Rational(2)));
}

// The conversion alone, between tiles made once, on the calling thread.
void BM_ipFormatChange(benchmark::State& st, IxPixelFormat::Depth from, IxPixelFormat::Depth to) {
    IxTile const src = sourceTile(IxPixelFormat(IxPixelFormat::RGBA, from));
    IxTile const dst(IxPixelFormat(IxPixelFormat::RGBA, to), {0, kSide, 0, kSide}, {});
    IxReadGuard const in(src);
    IxWriteGuard const out(dst);
    for (auto _ : st) {
        ipFormatChange(out, in, nullptr);
        benchmark::ClobberMemory();
    }
}
// The same on the SSE2 path, to show what the wider one brings.
void BM_ipFormatChange_SSE2(benchmark::State& st, IxPixelFormat::Depth from,
                            IxPixelFormat::Depth to) {
    IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::SSE2);
    BM_ipFormatChange(st, from, to);
    IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::AVX512);
}

// One row, UINT8 to float RGBA (or back), on the given path when the processor has it.
template <IxConvertUtil::VectorPath kPath, bool kToFloat>
void BM_Row(benchmark::State& st) {
    IxConvertUtil::limitVectorPath(kPath);
    if (IxConvertUtil::getVectorPath() != kPath)
        st.SkipWithError("the processor lacks this path");
    ImPixelFormat const u8(4, ImPixelFormat::UINT8);
    std::vector<std::uint8_t> bytes(4 * kSide);
    std::vector<CoRgbaColorTyped<float>> line(kSide);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    IxConvertUtil::readFrom(line.data(), reinterpret_cast<std::byte const*>(bytes.data()), kSide,
                            u8);
    for (auto _ : st) {
        if constexpr (kToFloat)
            IxConvertUtil::readFrom(line.data(), reinterpret_cast<std::byte const*>(bytes.data()),
                                    kSide, u8);
        else
            IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(bytes.data()), line.data(), kSide,
                                   u8);
        benchmark::ClobberMemory();
    }
    IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::AVX512);
}
void BM_ipFormatChange_U8_F32_SSE2(benchmark::State& st) {
    BM_ipFormatChange_SSE2(st, IxPixelFormat::UINT8, IxPixelFormat::FLOAT32);
}
void BM_ipFormatChange_F32_U8_SSE2(benchmark::State& st) {
    BM_ipFormatChange_SSE2(st, IxPixelFormat::FLOAT32, IxPixelFormat::UINT8);
}
void BM_ipFormatChange_U8_F32(benchmark::State& st) {
    BM_ipFormatChange(st, IxPixelFormat::UINT8, IxPixelFormat::FLOAT32);
}
void BM_ipFormatChange_F32_F16(benchmark::State& st) {
    BM_ipFormatChange(st, IxPixelFormat::FLOAT32, IxPixelFormat::FLOAT16);
}
void BM_ipFormatChange_F32_U8(benchmark::State& st) {
    BM_ipFormatChange(st, IxPixelFormat::FLOAT32, IxPixelFormat::UINT8);
}
void BM_ipFormatChange_F32_F16_SSE2(benchmark::State& st) {
    BM_ipFormatChange_SSE2(st, IxPixelFormat::FLOAT32, IxPixelFormat::FLOAT16);
}
void BM_ipFormatChange_F16_F32(benchmark::State& st) {
    BM_ipFormatChange(st, IxPixelFormat::FLOAT16, IxPixelFormat::FLOAT32);
}
void BM_ipFormatChange_F16_F32_SSE2(benchmark::State& st) {
    BM_ipFormatChange_SSE2(st, IxPixelFormat::FLOAT16, IxPixelFormat::FLOAT32);
}

void BM_Memcpy(benchmark::State& st, std::size_t bytesPerComponent) {
    std::size_t const bytes = std::size_t(kSide) * kSide * 4 * bytesPerComponent;
    std::vector<char> a(bytes, 0x3c), b(bytes);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(static_cast<std::int64_t>(st.iterations() * bytes));
}
void BM_Memcpy_F32(benchmark::State& st) {
    BM_Memcpy(st, 4);
}
void BM_Memcpy_F16(benchmark::State& st) {
    BM_Memcpy(st, 2);
}
void BM_Memcpy_U8(benchmark::State& st) {
    BM_Memcpy(st, 1);
}

cv::Mat randomMat(int type) {
    cv::Mat m(kSide, kSide, type);
    cv::randu(m, 0.0, type == CV_8UC4 ? 255.0 : 1.0);
    return m;
}

void BM_OpenCV_U8_F32(benchmark::State& st) {
    cv::Mat const src = randomMat(CV_8UC4);
    cv::Mat dst(kSide, kSide, CV_32FC4);
    for (auto _ : st) {
        src.convertTo(dst, CV_32FC4, 1.0 / 255.0);
        benchmark::ClobberMemory();
    }
}
void BM_OpenCV_F32_F16(benchmark::State& st) {
    cv::Mat const src = randomMat(CV_32FC4);
    cv::Mat dst;
    for (auto _ : st) {
        cv::convertFp16(src, dst);
        benchmark::ClobberMemory();
    }
}
void BM_OpenCV_F32_U8(benchmark::State& st) {
    cv::Mat const src = randomMat(CV_32FC4);
    cv::Mat dst(kSide, kSide, CV_8UC4);
    for (auto _ : st) {
        src.convertTo(dst, CV_8UC4, 255.0);
        benchmark::ClobberMemory();
    }
}

void BM_Vips_Reduceh_Halve(benchmark::State& st) {
    std::vector<float> pixels(std::size_t(kSide) * kSide * 4);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = float(i % 251) / 250.0f;
    VipsImage* in = vips_image_new_from_memory(pixels.data(), pixels.size() * sizeof(float), kSide,
                                               kSide, 4, VIPS_FORMAT_FLOAT);
    for (auto _ : st) {
        VipsImage* out = nullptr;
        if (vips_reduceh(in, &out, 2.0, "kernel", VIPS_KERNEL_LANCZOS3, nullptr) != 0) {
            st.SkipWithError(vips_error_buffer());
            break;
        }
        std::size_t size = 0;
        void* mem = vips_image_write_to_memory(out, &size);
        benchmark::DoNotOptimize(mem);
        g_free(mem);
        g_object_unref(out);
    }
    g_object_unref(in);
}

BENCHMARK(BM_NoOp_F32)->UseRealTime();
BENCHMARK(BM_Format_U8_F32)->UseRealTime();
BENCHMARK(BM_ipFormatChange_U8_F32);
BENCHMARK(BM_ipFormatChange_U8_F32_SSE2);
BENCHMARK(BM_Memcpy_F32);
BENCHMARK(BM_OpenCV_U8_F32);
BENCHMARK(BM_Format_F32_F16)->UseRealTime();
BENCHMARK(BM_ipFormatChange_F32_F16);
BENCHMARK(BM_ipFormatChange_F32_F16_SSE2);
BENCHMARK(BM_ipFormatChange_F16_F32);
BENCHMARK(BM_ipFormatChange_F16_F32_SSE2);
BENCHMARK(BM_Memcpy_F16);
BENCHMARK(BM_OpenCV_F32_F16);
BENCHMARK(BM_Format_F32_U8)->UseRealTime();
BENCHMARK(BM_ipFormatChange_F32_U8);
BENCHMARK(BM_ipFormatChange_F32_U8_SSE2);
BENCHMARK(BM_Memcpy_U8);
BENCHMARK(BM_OpenCV_F32_U8);
BENCHMARK(BM_Row<IxConvertUtil::VectorPath::SSE2, true>);
BENCHMARK(BM_Row<IxConvertUtil::VectorPath::AVX2, true>);
BENCHMARK(BM_Row<IxConvertUtil::VectorPath::AVX512, true>);
BENCHMARK(BM_Row<IxConvertUtil::VectorPath::SSE2, false>);
BENCHMARK(BM_Row<IxConvertUtil::VectorPath::AVX2, false>);
BENCHMARK(BM_Row<IxConvertUtil::VectorPath::AVX512, false>);
BENCHMARK(BM_Aspect_F32_Halve)->UseRealTime();
BENCHMARK(BM_Vips_Reduceh_Halve);

} // namespace

int main(int argc, char** argv) {
    if (VIPS_INIT(argv[0]) != 0)
        return 1;
    // One thread and no cache: every iteration computes the whole result, as ours does.
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    InInitMgr::getInstance().initialize();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"FormatConverter UINT8->FLOAT32 / memcpy", "BM_Format_U8_F32", "BM_Memcpy_F32"},
         {"FormatConverter UINT8->FLOAT32 / OpenCV convertTo", "BM_Format_U8_F32",
          "BM_OpenCV_U8_F32"},
         {"ipFormatChange UINT8->FLOAT32 / OpenCV convertTo", "BM_ipFormatChange_U8_F32",
          "BM_OpenCV_U8_F32"},
         {"FormatConverter FLOAT32->FLOAT16 / memcpy", "BM_Format_F32_F16", "BM_Memcpy_F16"},
         {"FormatConverter FLOAT32->FLOAT16 / OpenCV convertFp16", "BM_Format_F32_F16",
          "BM_OpenCV_F32_F16"},
         {"ipFormatChange FLOAT32->FLOAT16 / OpenCV convertFp16", "BM_ipFormatChange_F32_F16",
          "BM_OpenCV_F32_F16"},
         {"FormatConverter FLOAT32->UINT8 / memcpy", "BM_Format_F32_U8", "BM_Memcpy_U8"},
         {"FormatConverter FLOAT32->UINT8 / OpenCV convertTo", "BM_Format_F32_U8",
          "BM_OpenCV_F32_U8"},
         {"ipFormatChange FLOAT32->UINT8 / OpenCV convertTo", "BM_ipFormatChange_F32_U8",
          "BM_OpenCV_F32_U8"},
         {"ipFormatChange UINT8->FLOAT32, best path / SSE2", "BM_ipFormatChange_U8_F32",
          "BM_ipFormatChange_U8_F32_SSE2"},
         {"ipFormatChange FLOAT32->UINT8, best path / SSE2", "BM_ipFormatChange_F32_U8",
          "BM_ipFormatChange_F32_U8_SSE2"},
         {"ipFormatChange FLOAT32->FLOAT16, best path / SSE2", "BM_ipFormatChange_F32_F16",
          "BM_ipFormatChange_F32_F16_SSE2"},
         {"ipFormatChange FLOAT16->FLOAT32, best path / SSE2", "BM_ipFormatChange_F16_F32",
          "BM_ipFormatChange_F16_F32_SSE2"},
         {"row UINT8->FLOAT32, AVX2 / SSE2", "BM_Row<IxConvertUtil::VectorPath::AVX2, true>",
          "BM_Row<IxConvertUtil::VectorPath::SSE2, true>"},
         {"row UINT8->FLOAT32, AVX512 / AVX2", "BM_Row<IxConvertUtil::VectorPath::AVX512, true>",
          "BM_Row<IxConvertUtil::VectorPath::AVX2, true>"},
         {"row FLOAT32->UINT8, AVX2 / SSE2", "BM_Row<IxConvertUtil::VectorPath::AVX2, false>",
          "BM_Row<IxConvertUtil::VectorPath::SSE2, false>"},
         {"row FLOAT32->UINT8, AVX512 / AVX2", "BM_Row<IxConvertUtil::VectorPath::AVX512, false>",
          "BM_Row<IxConvertUtil::VectorPath::AVX2, false>"},
         {"AspectConverter halving FLOAT32 / vips reduceh lanczos3", "BM_Aspect_F32_Halve",
          "BM_Vips_Reduceh_Halve"}});
    InInitMgr::getInstance().finalize();
    vips_shutdown();
    return rc;
}
