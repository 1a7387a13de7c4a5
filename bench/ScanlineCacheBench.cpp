// The scanline cache's column pass (horizontal buffer to vertical buffer, an identity operation
// on each column) over float images of 2048 x 2048 and 4096 x 256, against:
//  - a naive pass that walks each column straight through the row-major buffer, into a line
//    and back;
//  - OpenCV: cv::transpose into columns as rows, the same identity on each row, and
//    cv::transpose back.
// The same pass on the SSE2 path shows what the wider transposes bring.
// Prints our time over each reference's (lower is better).

#include "BenchRatio.h"

#include "InPackageInit.h"
#include "IxConvertUtil.h"
#include "IxGuardBase.h"
#include "IxScanline.h"
#include "IxScanlineCache.h"
#include "IxWriteGuardProxy.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cstring>
#include <vector>

using namespace Vn;

namespace {

void BM_ScanlineCache(benchmark::State& st, int width, int height) {
    GeRectangle<int> const r(0, width, 0, height);
    for (auto _ : st) {
        IxScanlineCache<float> cache(r, r);
        IxScanline<float>* dst = nullptr;
        IxScanline<float>* src = nullptr;
        while (cache.hasNext()) {
            cache.getNext(dst, src);
            std::memcpy(dst->getData(), src->getData(), sizeof(float) * height);
        }
        cache.flush();
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * width * height);
}

void BM_ScanlineCacheSse2(benchmark::State& st, int width, int height) {
    IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::SSE2);
    BM_ScanlineCache(st, width, height);
    IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::AVX512);
}

void BM_NaiveColumns(benchmark::State& st, int width, int height) {
    std::vector<float> h(static_cast<std::size_t>(width) * height, 1.0f);
    std::vector<float> v(h.size(), 0.0f);
    std::vector<float> in(height);
    std::vector<float> out(height);
    for (auto _ : st) {
        for (int x = 0; x < width; ++x) {
            for (int y = 0; y < height; ++y)
                in[y] = h[static_cast<std::size_t>(y) * width + x];
            std::memcpy(out.data(), in.data(), sizeof(float) * height);
            for (int y = 0; y < height; ++y)
                v[static_cast<std::size_t>(y) * width + x] = out[y];
        }
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * width * height);
}

void BM_OpenCvTranspose(benchmark::State& st, int width, int height) {
    cv::Mat h(height, width, CV_32F, cv::Scalar(1.0f));
    cv::Mat columns;
    cv::Mat processed(width, height, CV_32F);
    cv::Mat v;
    for (auto _ : st) {
        cv::transpose(h, columns);
        for (int x = 0; x < width; ++x)
            std::memcpy(processed.ptr<float>(x), columns.ptr<float>(x), sizeof(float) * height);
        cv::transpose(processed, v);
        benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * width * height);
}

BENCHMARK_CAPTURE(BM_ScanlineCache, 2048x2048, 2048, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ScanlineCacheSse2, 2048x2048, 2048, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NaiveColumns, 2048x2048, 2048, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OpenCvTranspose, 2048x2048, 2048, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ScanlineCache, 4096x256, 4096, 256)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ScanlineCacheSse2, 4096x256, 4096, 256)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NaiveColumns, 4096x256, 4096, 256)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_OpenCvTranspose, 4096x256, 4096, 256)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    int const rc =
        VnBench::runWithRatios(argc, argv,
                               {{"column pass 2048x2048, best path / SSE2",
                                 "BM_ScanlineCache/2048x2048", "BM_ScanlineCacheSse2/2048x2048"},
                                {"column pass 4096x256, best path / SSE2",
                                 "BM_ScanlineCache/4096x256", "BM_ScanlineCacheSse2/4096x256"},
                                {"column pass 2048x2048 against a naive column walk",
                                 "BM_ScanlineCache/2048x2048", "BM_NaiveColumns/2048x2048"},
                                {"column pass 2048x2048 against cv::transpose there and back",
                                 "BM_ScanlineCache/2048x2048", "BM_OpenCvTranspose/2048x2048"},
                                {"column pass 4096x256 against a naive column walk",
                                 "BM_ScanlineCache/4096x256", "BM_NaiveColumns/4096x256"},
                                {"column pass 4096x256 against cv::transpose there and back",
                                 "BM_ScanlineCache/4096x256", "BM_OpenCvTranspose/4096x256"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
