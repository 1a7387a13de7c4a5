// The pixel loop against the plain C library: a one-source loop that passes a 512 x 512 tile
// through unchanged (read into float RGBA lines, written back in the tile's format), against one
// memcpy of the same bytes, for FLOAT32 and UINT8 RGBA tiles.
// Prints our time over the reference's for each (lower is better).

#include "BenchRatio.h"

#include "InPackageInit.h"
#include "IxGuardBase.h"
#include "PiPixelLoop.h"

#include <cstring>
#include <vector>

using namespace Vn;

namespace {

constexpr int kSide = 512;

class PassThrough final : public PiPixelLoopOneSource {
public:
    using PiPixelLoopOneSource::PiPixelLoopOneSource;
    void processScanline(Scanline& dst, Scanline const& src) override {
        std::memcpy(dst.getData(), src.getData(), sizeof(Color) * dst.getWidth());
    }
    Color processFillColor(Color const& fill) override { return fill; }
};

template <IxPixelFormat::Depth kDepth>
void BM_PixelLoop(benchmark::State& st) {
    IxPixelFormat const f(IxPixelFormat::RGBA, kDepth);
    GeRectangle<int> const region(0, kSide, 0, kSide);
    IxTile const src(f, region, {});
    IxTile const dst(f, region, {});
    {
        IxWriteGuard w(src);
        std::memset(w.getFirst(), 0x3c, static_cast<std::size_t>(src.getLineStride()) * kSide);
    }
    IxReadGuard const in(src);
    IxWriteGuard out(dst);
    for (auto _ : st) {
        PassThrough loop(out, PiImageModifierTypes::AFFECT_RGBA);
        loop.process(in);
        benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(st.iterations() * kSide * kSide * f.getPixelSize());
}

template <IxPixelFormat::Depth kDepth>
void BM_Memcpy(benchmark::State& st) {
    std::size_t const bytes = static_cast<std::size_t>(kSide) * kSide * 4 * (kDepth / 8);
    std::vector<char> a(bytes, 0x3c), b(bytes);
    for (auto _ : st) {
        std::memcpy(b.data(), a.data(), bytes);
        benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(st.iterations() * bytes);
}

BENCHMARK(BM_PixelLoop<IxPixelFormat::FLOAT32>);
BENCHMARK(BM_Memcpy<IxPixelFormat::FLOAT32>);
BENCHMARK(BM_PixelLoop<IxPixelFormat::UINT8>);
BENCHMARK(BM_Memcpy<IxPixelFormat::UINT8>);

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"pixel loop 512^2 RGBA FLOAT32 / memcpy", "BM_PixelLoop<IxPixelFormat::FLOAT32>",
          "BM_Memcpy<IxPixelFormat::FLOAT32>"},
         {"pixel loop 512^2 RGBA UINT8 / memcpy", "BM_PixelLoop<IxPixelFormat::UINT8>",
          "BM_Memcpy<IxPixelFormat::UINT8>"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
