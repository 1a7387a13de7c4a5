// The alpha scanline pipes over a 2048 x 2048 float matte, tile to tile, against:
//  - OpenCV cv::sepFilter2D with the same Gaussian taps, for the feather at radius 1, 8 and 64;
//  - OpenCV cv::dilate with a 17 x 17 rectangle and ellipse, for dilation by 8;
//  - memcpy of the same rows, for the per-pixel blend and invert kernels (bandwidth bound);
//  - the feather's 5-tap correlation over one row in the first-level cache, on each vector path.
// Prints our time over each reference's (lower is better).

#include "BenchRatio.h"

#include "InPackageInit.h"
#include "IpAlphaKernels.h"
#include "IpDilate.h"
#include "IpScanlinePipeUtils.h"
#include "IxConvertUtil.h"
#include "IxGuardBase.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

using namespace Vn;

namespace {

constexpr int kSize = 2048;
IxPixelFormat const kAlpha(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32);

float matte(int x, int y) {
    float const d = std::hypot(float(x - kSize / 3), float(y - kSize / 2)) / float(kSize);
    return std::fmin(1.0f, std::fmax(0.0f, (0.3f - d) * 30.0f)) + ((x ^ y) % 61 == 0 ? 0.5f : 0.0f);
}

IxTile sourceTile() {
    IxTile t(kAlpha, {0, kSize, 0, kSize}, {});
    IxWriteGuard g(t);
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x)
            *g.getPixel<float>(x, y) = matte(x, y);
    return t;
}

cv::Mat sourceMat() {
    cv::Mat m(kSize, kSize, CV_32F);
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x)
            m.at<float>(y, x) = matte(x, y);
    return m;
}

void runPipe(benchmark::State& st,
             std::function<IpScanlinePipePtr(IpScanlinePipePtr const&)> const& build) {
    IxTile const src = sourceTile();
    IxTile const dst(kAlpha, {0, kSize, 0, kSize}, {});
    Vector<IxReadGuard> const sources{IxReadGuard(src)};
    IxWriteGuard out(dst);
    for (auto _ : st) {
        IpScanlinePipePtr const s = IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::ALPHA);
        IpScanlinePipeUtils::createAlphaDest(build(s), IxPixelFormat::ALPHA, {0, kSize, 0, kSize},
                                             nullptr)
            ->process(out, sources);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kSize * kSize);
}

void BM_BlurAlpha(benchmark::State& st, int radius) {
    float const r = static_cast<float>(radius);
    runPipe(st, [r](IpScanlinePipePtr const& s) {
        return IpScanlinePipeUtils::createBlurAlpha(s, r, r);
    });
}

void BM_OpenCvSepFilter(benchmark::State& st, int radius) {
    IpGauss1DKernel const k(static_cast<float>(radius));
    cv::Mat const taps(1, k.getSize(), CV_32F, const_cast<float*>(k.getTaps()));
    cv::Mat const src = sourceMat();
    cv::Mat dst(kSize, kSize, CV_32F);
    for (auto _ : st) {
        cv::sepFilter2D(src, dst, CV_32F, taps, taps, cv::Point(-1, -1), 0.0, cv::BORDER_CONSTANT);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kSize * kSize);
}

void BM_DilateBox8(benchmark::State& st) {
    runPipe(st,
            [](IpScanlinePipePtr const& s) { return IpDilate::create(s, IpDilate::BOX, 8, 8); });
}

void BM_DilateDisc8(benchmark::State& st) {
    runPipe(st,
            [](IpScanlinePipePtr const& s) { return IpDilate::create(s, IpDilate::DISC, 8, 8); });
}

void openCvDilate(benchmark::State& st, int shape) {
    cv::Mat const element = cv::getStructuringElement(shape, cv::Size(17, 17));
    cv::Mat const src = sourceMat();
    cv::Mat dst(kSize, kSize, CV_32F);
    for (auto _ : st) {
        cv::dilate(src, dst, element, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * kSize * kSize);
}

void BM_OpenCvDilateRect8(benchmark::State& st) {
    openCvDilate(st, cv::MORPH_RECT);
}
void BM_OpenCvDilateEllipse8(benchmark::State& st) {
    openCvDilate(st, cv::MORPH_ELLIPSE);
}

// The row kernels over the whole image, one row at a time as the pipes run them.
struct Planes {
    std::vector<float> a = std::vector<float>(std::size_t(kSize) * kSize, 0.25f);
    std::vector<float> b = std::vector<float>(std::size_t(kSize) * kSize, 0.75f);
    std::vector<float> d = std::vector<float>(std::size_t(kSize) * kSize, 0.0f);
};

void rows(benchmark::State& st, std::function<void(float*, float const*, float const*)> const& f) {
    Planes p;
    for (auto _ : st) {
        for (std::size_t y = 0; y < kSize; ++y)
            f(p.d.data() + y * kSize, p.a.data() + y * kSize, p.b.data() + y * kSize);
        benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(st.iterations() * kSize * kSize * 4);
}

void BM_BlendRows(benchmark::State& st) {
    rows(st, [](float* d, float const* a, float const* b) {
        IpAlphaRows::blend(d, a, b, 0.3f, kSize);
    });
}
void BM_InvertRows(benchmark::State& st) {
    rows(st, [](float* d, float const* a, float const*) { IpAlphaRows::invert(d, a, kSize); });
}
void BM_MemcpyRows(benchmark::State& st) {
    rows(st,
         [](float* d, float const* a, float const*) { std::memcpy(d, a, sizeof(float) * kSize); });
}

// The radius 1 feather's taps over a row of 2048, on the given path when the processor has it.
template <IxConvertUtil::VectorPath kPath>
void BM_CorrelateRow(benchmark::State& st) {
    IxConvertUtil::limitVectorPath(kPath);
    if (IxConvertUtil::getVectorPath() != kPath)
        st.SkipWithError("the processor lacks this path");
    IpGauss1DKernel const k(1.0f);
    std::vector<float> src(std::size_t(kSize + k.getSize() - 1), 0.5f);
    std::vector<float> dst(std::size_t(kSize), 0.0f);
    for (auto _ : st) {
        IpAlphaRows::correlate(dst.data(), src.data(), kSize, k.getTaps(), k.getSize());
        benchmark::ClobberMemory();
    }
    IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::AVX512);
    st.SetItemsProcessed(st.iterations() * kSize);
}

BENCHMARK_CAPTURE(BM_BlurAlpha, 1, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BlurAlpha, 8, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BlurAlpha, 64, 64)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OpenCvSepFilter, 1, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OpenCvSepFilter, 8, 8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OpenCvSepFilter, 64, 64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DilateBox8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCvDilateRect8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DilateDisc8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCvDilateEllipse8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlendRows)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InvertRows)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemcpyRows)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CorrelateRow<IxConvertUtil::VectorPath::SSE2>);
BENCHMARK(BM_CorrelateRow<IxConvertUtil::VectorPath::AVX2>);
BENCHMARK(BM_CorrelateRow<IxConvertUtil::VectorPath::AVX512>);

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"feather radius 1 against cv::sepFilter2D", "BM_BlurAlpha/1", "BM_OpenCvSepFilter/1"},
         {"feather radius 8 against cv::sepFilter2D", "BM_BlurAlpha/8", "BM_OpenCvSepFilter/8"},
         {"feather radius 64 against cv::sepFilter2D", "BM_BlurAlpha/64", "BM_OpenCvSepFilter/64"},
         {"box dilation 8 against cv::dilate rect", "BM_DilateBox8", "BM_OpenCvDilateRect8"},
         {"disc dilation 8 against cv::dilate ellipse", "BM_DilateDisc8",
          "BM_OpenCvDilateEllipse8"},
         {"blend rows against memcpy", "BM_BlendRows", "BM_MemcpyRows"},
         {"invert rows against memcpy", "BM_InvertRows", "BM_MemcpyRows"},
         {"feather row, AVX2 / SSE2", "BM_CorrelateRow<IxConvertUtil::VectorPath::AVX2>",
          "BM_CorrelateRow<IxConvertUtil::VectorPath::SSE2>"},
         {"feather row, AVX512 / AVX2", "BM_CorrelateRow<IxConvertUtil::VectorPath::AVX512>",
          "BM_CorrelateRow<IxConvertUtil::VectorPath::AVX2>"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
