// Tile memory against the plain C library on the same bytes:
//  - copying a 512 x 512 RGBA float tile into an image, in one block (lines alike) and line by
//    line (the image's lines padded apart), against one memcpy of the tile's bytes;
//  - allocating and releasing the memory of a tile, against malloc and free of the same size,
//    on one thread and on two.
// Prints our time over the reference's for each (lower is better).

#include "BenchRatio.h"

#include "ImImageConst.h"
#include "InPackageInit.h"
#include "IxGuardBase.h"
#include "IxMemResource.h"
#include "IxTileManip.h"
#include "IxUtil.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

using namespace Vn;

namespace {

constexpr int kSide = 512;

struct Manip : IxTileManip {
    using IxTileManip::createTile;
};

IxPixelFormat const& rgbaFloat() {
    static IxPixelFormat const f(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
    return f;
}

IxTile makeTile(GeRectangle<int> const& region) {
    return Manip::createTile(
        rgbaFloat(), region,
        IxMemResource::getInstance().allocate(IxTile::computeBufferSize(rgbaFloat(), region)), {});
}

GeRectangle<int> const kRegion(0, kSide, 0, kSide);

template <bool kLineByLine>
void BM_IxUtilCopy(benchmark::State& st) {
    IxTile const tile = makeTile(kRegion);
    ImPixelFormat const f(4, ImPixelFormat::FLOAT32);
    std::int32_t const stride = kSide * 16 + (kLineByLine ? 64 : 0);
    ImImage const image = ImImage::create(ImLayout(f, kRegion, 64, stride, 0));
    {
        IxWriteGuard w(tile);
        std::memset(w.getAddress(0, 0), 1, static_cast<std::size_t>(kSide) * kSide * 16);
    }
    IxReadGuard src(tile);
    ImWriteGuard dst(image);
    for (auto _ : st) {
        IxUtil::ixToImCopy(dst, src, nullptr, nullptr);
        benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(st.iterations() * kSide * kSide * 16);
}
void BM_IxUtilCopyOneBlock(benchmark::State& st) {
    BM_IxUtilCopy<false>(st);
}
void BM_IxUtilCopyLineByLine(benchmark::State& st) {
    BM_IxUtilCopy<true>(st);
}

void BM_Memcpy(benchmark::State& st) {
    std::size_t const bytes = static_cast<std::size_t>(kSide) * kSide * 16;
    std::vector<char> a(bytes, 1);
    std::vector<char> b(bytes + 64 * kSide, 0);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(st.iterations() * static_cast<std::int64_t>(bytes));
}

void BM_TileAllocRelease(benchmark::State& st) {
    unsigned int const size = IxTile::computeBufferSize(rgbaFloat(), kRegion);
    for (auto _ : st) {
        IxTile t = Manip::createTile(rgbaFloat(), kRegion,
                                     IxMemResource::getInstance().allocate(size), {});
        benchmark::DoNotOptimize(t);
    }
}

void BM_MallocFree(benchmark::State& st) {
    std::size_t const size = IxTile::computeBufferSize(rgbaFloat(), kRegion);
    for (auto _ : st) {
        void* p = std::malloc(size);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}

BENCHMARK(BM_IxUtilCopyOneBlock)->Repetitions(5);
BENCHMARK(BM_IxUtilCopyLineByLine)->Repetitions(5);
BENCHMARK(BM_Memcpy)->Repetitions(5);
BENCHMARK(BM_TileAllocRelease)->Threads(1)->Threads(2)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_MallocFree)->Threads(1)->Threads(2)->UseRealTime()->Repetitions(3);

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"512^2 RGBA float tile to image, one block", "BM_IxUtilCopyOneBlock", "BM_Memcpy"},
         {"512^2 RGBA float tile to image, line by line", "BM_IxUtilCopyLineByLine", "BM_Memcpy"},
         {"allocate and release a 512^2 RGBA float tile", "BM_TileAllocRelease", "BM_MallocFree",
          1},
         {"allocate and release a 512^2 RGBA float tile", "BM_TileAllocRelease", "BM_MallocFree",
          2}});
    InInitMgr::getInstance().finalize();
    return rc;
}
