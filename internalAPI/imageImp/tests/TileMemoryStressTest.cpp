#include "ImageTestSupport.h"
#include "MbBuffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;
using namespace VnTest;

namespace {

int iterations() {
    char const* v = std::getenv("VN_STRESS_TILE_ITERATIONS");
    return v ? std::atoi(v) : 20000;
}

// Tiles passed between threads: whoever takes one checks what its maker wrote.
struct Exchange {
    std::mutex lock;
    std::vector<std::pair<IxTile, float>> tiles;
};

void work(Exchange& exchange, unsigned seed, int nbIterations, std::int32_t* guardsAtEnd,
          int* badPixels) {
    std::mt19937 rng(seed);
    IxPixelFormat const formats[] = {IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                                     IxPixelFormat(IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32),
                                     IxPixelFormat(IxPixelFormat::RGB, IxPixelFormat::FLOAT32)};
    std::vector<IxReadGuard> held;
    for (int i = 0; i < nbIterations; ++i) {
        IxPixelFormat const& f = formats[rng() % 3];
        int const w = 1 + static_cast<int>(rng() % 300);
        int const h = 1 + static_cast<int>(rng() % 40);
        IxTile const t = makeTile(f, {0, w, 0, h});
        float const stamp = static_cast<float>(seed * 100000 + i);
        {
            IxWriteGuard wg(t);
            *wg.getPixel<float>(w - 1, h - 1) = stamp;
            IxTileManip::ReadGuardNoCheck extra(t);
            if (*extra.getPixel<float>(w - 1, h - 1) != stamp)
                ++*badPixels;
        }
        if (rng() % 4 == 0)
            held.emplace_back(t);
        if (held.size() > 8)
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(rng() % held.size()));
        std::pair<IxTile, float> taken;
        {
            std::lock_guard<std::mutex> lock(exchange.lock);
            exchange.tiles.emplace_back(t, stamp);
            if (exchange.tiles.size() > 16) {
                std::size_t const k = rng() % exchange.tiles.size();
                taken = exchange.tiles[k];
                exchange.tiles.erase(exchange.tiles.begin() + static_cast<std::ptrdiff_t>(k));
            }
        }
        if (taken.first.isValid()) {
            IxReadGuard r(taken.first);
            GeRectangle<int> const& reg = taken.first.getPixelRegion();
            if (*r.getPixel<float>(reg.xmax - 1, reg.ymax - 1) != taken.second)
                ++*badPixels;
        }
    }
    held.clear();
    *guardsAtEnd = IxMemResourceImp::TileMemoryBuffer::getNbGuardedByThread();
}

} // namespace

TEST(TileMemoryStress, ThreadsAllocateShareAndGuardTiles) {
    InInitMgr::getInstance().initialize();
    std::int64_t const baseline = MbHeapBufferFactory::getNbLiveBuffers();
    {
        Exchange exchange;
        int const nbThreads = 4;
        std::vector<std::int32_t> guards(nbThreads, -1);
        std::vector<int> bad(nbThreads, 0);
        std::vector<std::thread> threads;
        for (int i = 0; i < nbThreads; ++i)
            threads.emplace_back(work, std::ref(exchange), 1u + i, iterations(), &guards[i],
                                 &bad[i]);
        for (std::thread& t : threads)
            t.join();
        for (int i = 0; i < nbThreads; ++i) {
            EXPECT_EQ(guards[i], 0) << "thread " << i;
            EXPECT_EQ(bad[i], 0) << "thread " << i;
        }
        EXPECT_GT(MbHeapBufferFactory::getNbLiveBuffers(), baseline);
    }
    EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), baseline);
    InInitMgr::getInstance().finalize();
}
