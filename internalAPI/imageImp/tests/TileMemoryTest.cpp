#include "../../procImp/tests/EngineTestSupport.h"

#include "ExBase.h"
#include "ImageTestSupport.h"
#include "IxMemoryHeap.h"
#include "IxMemoryNone.h"
#include "IxUtil.h"
#include "MbBuffer.h"
#include "PxRequest.h"
#include "PxRequestMgr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;
using namespace VnTest;
using TileMemoryBuffer = IxMemResourceImp::TileMemoryBuffer;

namespace {

std::string assertionText(std::function<void()> const& f) {
    try {
        f();
    } catch (ExAssertionFailed const& e) {
        return e.getReason();
    }
    return "(no assertion)";
}

// A buffer that is not in memory until pinned; it notes whether its loader had handed its
// worker slot on, and can fail to load.
class LazyBufferImp : public MbBufferImp {
public:
    struct Log {
        std::atomic<int> pins{0};
        std::atomic<int> pinsWhileBlocked{0};
        bool fail = false;
    };
    LazyBufferImp(std::size_t size, Log* log)
        : MbBufferImp("lazy", size, MbAlignment(63), nullptr, false), _store(size, 64), _log(log) {}
    std::byte* pin() override {
        if (_log->fail)
            throw MsgException<ExBase>(__FILE__, __LINE__, "load failed");
        ++_log->pins;
        if (PxRequestMgr::isInitialized() && PxRequestMgr::getInstance().isWorkerThreadBlocked())
            ++_log->pinsWhileBlocked;
        if (_nbPinned++ == 0)
            _data = _store.getData();
        return _data;
    }
    void unpin() noexcept override {
        if (--_nbPinned == 0)
            _data = nullptr;
    }

private:
    MbBuffer _store;
    Log* _log;
    int _nbPinned = 0;
};

class LazyFactory : public MbBufferFactory {
public:
    MbBuffer create(char const*, std::size_t size, MbAlignment const&) override {
        return MbBuffer(RCShdPtr<MbBufferImp>(new LazyBufferImp(size, &_log)));
    }
    LazyBufferImp::Log _log;
};

void runOnWorker(std::function<void()> fn) {
    runAndWait(new FnRequest(std::move(fn)));
}

float& redAt(IxWriteGuard const& g, int x, int y) {
    return g.getPixel<CoRgbaColorTyped<float>>(x, y)->r;
}

} // namespace

using TileMemory = ImageTest;

TEST_F(TileMemory, EmptyAndHeapBlocks) {
    RCShdPtr<IxMemory> none = IxMemResource::getInstance().allocate(0);
    ASSERT_NE(dynamic_cast<IxMemoryNone*>(none.get()), nullptr);
    EXPECT_EQ(none->getSize(), 0u);
    EXPECT_EQ(none->getAlign(), unsigned(IxTile::MIN_LINE_ALIGN));
    IxTile const empty = Manip::createTile(rgbaFloat(), {}, none, {});
    EXPECT_TRUE(empty.isValid());
    {
        IxReadGuard r(empty);
        EXPECT_TRUE(r.holdsMemory());
        EXPECT_EQ(r.getAddress(0, 0), nullptr);
        EXPECT_EQ(guardsOnThread(), _guardsBefore);
    }
    EXPECT_THROW(none->allocate(16), ExProgramAborted);
    EXPECT_EQ(none->allocate(0)->getSize(), 0u);
    // No pixels may stand on memory without storage.
    EXPECT_THROW(Manip::createTile(rgbaFloat(), {0, 1, 0, 1}, none, {}), ExAssertionFailed);

    IxMemoryHeap heap(1000);
    IxWriteGuard unused;
    std::byte* aligned = heap.acquire(unused);
    EXPECT_TRUE(MbAlignment::isAligned(aligned, IxTile::MIN_LINE_ALIGN));
    EXPECT_EQ(heap.allocate(0)->getSize(), 1000u);
    EXPECT_EQ(heap.allocate(24)->getSize(), 24u);
    std::memset(aligned, 1, 1000);
    IxMemoryHeap taker(heap);
    EXPECT_TRUE(taker.ownsArray());
    EXPECT_FALSE(heap.ownsArray());
    EXPECT_EQ(heap.getSize(), 1000u);
    EXPECT_EQ(heap.acquire(unused), aligned);
    EXPECT_EQ(taker.acquire(unused), aligned);
    IxMemoryHeap other(8);
    other = taker;
    EXPECT_TRUE(other.ownsArray());
    EXPECT_FALSE(taker.ownsArray());
    EXPECT_EQ(other.getSize(), 1000u);
}

TEST_F(TileMemory, TileMemoryBuffers) {
    RCShdPtr<IxMemory> m;
    {
        IxTile::OwnerNameScope owner("Blur");
        m = IxMemResource::getInstance().allocate(4096);
    }
    auto* buffer = dynamic_cast<TileMemoryBuffer*>(m.get());
    ASSERT_NE(buffer, nullptr);
    EXPECT_STREQ(buffer->getCreatorName(), "Blur");
    EXPECT_EQ(buffer->getCreationPoint(), nullptr);
    EXPECT_STREQ(buffer->getBuffer().getName(), "TileMemoryBuffer");
    EXPECT_EQ(m->getSize(), 4096u);
    EXPECT_EQ(m->getAlign(), unsigned(IxTile::MIN_LINE_ALIGN));
    RCShdPtr<IxMemory> same = m->allocate(0);
    EXPECT_EQ(same->getSize(), 4096u);
    EXPECT_NE(dynamic_cast<TileMemoryBuffer*>(same.get())->getBuffer(), buffer->getBuffer());
    EXPECT_EQ(m->allocate(100)->getSize(), 100u);
    EXPECT_TRUE(TileMemoryBuffer::getAllTileBuffers()->empty());
    EXPECT_TRUE(TileMemoryBuffer::getAllTileGuards()->empty());
    EXPECT_TRUE(TileMemoryBuffer::getThreadGuards().empty());
}

// A block of the resource and an image over its buffer, small and large, either let go first:
// the other keeps the pixels, and both are freed with the last. A block still alive in a
// thread-local is freed after its thread's caches are gone.
TEST_F(TileMemory, BlocksGoWithTheLastOfThemAndTheirImages) {
    std::int64_t const live = MbHeapBufferFactory::getNbLiveBuffers();
    for (int side : {2, 1024}) {
        for (bool tileFirst : {true, false}) {
            SCOPED_TRACE(::testing::Message()
                         << side << (tileFirst ? " tile first" : " image first"));
            std::optional<IxTile> tile = makeTile(rgbaFloat(), {0, side, 0, side});
            EXPECT_NE(dynamic_cast<TileMemoryBuffer*>(Manip::getMemory(*tile).get()), nullptr);
            {
                IxWriteGuard w(*tile);
                redAt(w, side - 1, side - 1) = 5.0f;
            }
            std::optional<ImImageConst> image = IxUtil::ixTileToImImageConst(*tile);
            if (tileFirst)
                tile.reset();
            else
                image.reset();
            float red = 0.0f;
            if (tileFirst) {
                ImReadGuard r(*image);
                red = reinterpret_cast<float const*>(r.getAddress(side - 1, side - 1))[0];
            } else {
                red = IxReadGuard(*tile).getPixel<CoRgbaColorTyped<float>>(side - 1, side - 1)->r;
            }
            EXPECT_EQ(red, 5.0f);
            EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live + 1);
            tile.reset();
            image.reset();
            EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live);
        }
    }
    std::thread([] {
        static thread_local RCShdPtr<IxMemory> late;
        RCShdPtr<IxMemory>& slot = late;
        slot = IxMemResource::getInstance().allocate(256);
        RCShdPtr<IxMemory> const kept = IxMemResource::getInstance().allocate(1 << 20);
    }).join();
    EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live);
}

TEST_F(TileMemory, GuardCountsNetToZeroAfterAnyMix) {
    IxPixelFormat const f = rgbaFloat();
    IxTile const tiles[3] = {
        makeTile(f, {0, 8, 0, 8}), makeTile(f, {8, 16, 0, 8}),
        Manip::createTile(f, {0, 4, 0, 4}, RCShdPtr<IxMemory>(new IxMemoryHeap(4096)), {})};
    std::mt19937 rng(5);
    std::vector<IxReadGuard> reads;
    std::vector<IxWriteGuard> writes;
    std::vector<IxTileManip::ReadGuardNoCheck> readsNoCheck;
    std::vector<IxTileManip::WriteGuardNoCheck> writesNoCheck;
    reads.reserve(400);
    writes.reserve(400);
    readsNoCheck.reserve(400);
    writesNoCheck.reserve(400);
    // Only guards over tile memory buffers (tiles 0 and 1) that count are counted.
    auto expected = [&] {
        int n = 0;
        for (auto const& g : reads)
            n += g.holdsMemory() && Manip::getMemory(g.getTile()) != Manip::getMemory(tiles[2]);
        for (auto const& g : writes)
            n += g.holdsMemory() && Manip::getMemory(g.getTile()) != Manip::getMemory(tiles[2]);
        return _guardsBefore + n;
    };
    for (int step = 0; step < 2000; ++step) {
        IxTile const& t = tiles[rng() % 3];
        switch (rng() % 10) {
        case 0:
            reads.emplace_back(t);
            break;
        case 1:
            writes.emplace_back(t);
            break;
        case 2:
            readsNoCheck.emplace_back(t);
            break;
        case 3:
            writesNoCheck.emplace_back(t);
            break;
        case 4:
            if (!reads.empty())
                reads.push_back(reads[rng() % reads.size()]);
            if (!readsNoCheck.empty())
                readsNoCheck.push_back(readsNoCheck[rng() % readsNoCheck.size()]);
            break;
        case 5:
            if (!writes.empty() && !readsNoCheck.empty()) {
                writes[rng() % writes.size()] = IxWriteGuard(t);
                readsNoCheck[rng() % readsNoCheck.size()] = IxTileManip::ReadGuardNoCheck(t);
            }
            break;
        case 6:
            if (!writesNoCheck.empty())
                writesNoCheck[rng() % writesNoCheck.size()] = IxTileManip::WriteGuardNoCheck();
            if (!reads.empty())
                reads[rng() % reads.size()].reset();
            break;
        default: {
            // Close a few guards of every kind, from anywhere in their lists.
            auto drop = [&](auto& v) {
                if (!v.empty())
                    v.erase(v.begin() + static_cast<std::ptrdiff_t>(rng() % v.size()));
            };
            drop(reads);
            drop(writes);
            drop(readsNoCheck);
            drop(writesNoCheck);
        }
        }
        if (reads.size() > 300 || writes.size() > 300 || readsNoCheck.size() > 300 ||
            writesNoCheck.size() > 300) {
            reads.clear();
            writesNoCheck.clear();
        }
        ASSERT_EQ(guardsOnThread(), expected()) << "step " << step;
    }
    reads.clear();
    writes.clear();
    readsNoCheck.clear();
    writesNoCheck.clear();
    EXPECT_EQ(guardsOnThread(), _guardsBefore);
}

TEST_F(TileMemory, UncountedGuardsAndTheResetScope) {
    IxTile const t = makeTile(rgbaFloat(), {0, 4, 0, 4});
    IxReadGuard a(t);
    IxWriteGuard b(t);
    std::int32_t const outside = guardsOnThread();
    EXPECT_EQ(outside, _guardsBefore + 2);
    {
        IxTileManip::ReadGuardNoCheck r(t);
        IxTileManip::WriteGuardNoCheck w(t);
        IxTileManip::WriteGuardNoCheck copy(w);
        EXPECT_EQ(guardsOnThread(), outside);
        // The uncounted guards still hold the memory for real.
        redAt(w, 1, 1) = 3.0f;
        EXPECT_EQ(r.getPixel<CoRgbaColorTyped<float>>(1, 1)->r, 3.0f);
    }
    EXPECT_EQ(guardsOnThread(), outside);
    {
        IxTileManip::ResetIxGuardCheckGuard reset;
        EXPECT_EQ(guardsOnThread(), 0);
        IxReadGuard inside(t);
        EXPECT_EQ(guardsOnThread(), 1);
        {
            IxTileManip::ResetIxGuardCheckGuard nested;
            EXPECT_EQ(guardsOnThread(), 0);
        }
        EXPECT_EQ(guardsOnThread(), 1);
        IxReadGuard left(t);
        left.reset();
    }
    EXPECT_EQ(guardsOnThread(), outside);
}

TEST_F(TileMemory, NarrowingKeepsPixelsWhereTheyAre) {
    IxTile const whole = makeTile(rgbaFloat(), {-4, 12, 10, 20});
    {
        IxWriteGuard w(whole);
        for (int y = 10; y < 20; ++y)
            for (int x = -4; x < 12; ++x)
                redAt(w, x, y) = static_cast<float>(x * 100 + y);
    }
    IxTile narrow = whole;
    Manip::setPixelRegion(narrow, {-4, 12, 10, 20});
    Manip::setPixelRegion(narrow, {2, 7, 13, 15});
    EXPECT_EQ(narrow.getPixelRegion(), GeRectangle<int>(2, 7, 13, 15));
    EXPECT_EQ(narrow.getLineStride(), whole.getLineStride());
    IxReadGuard r(narrow);
    for (int y = 13; y < 15; ++y)
        for (int x = 2; x < 7; ++x)
            ASSERT_EQ(r.getPixel<CoRgbaColorTyped<float>>(x, y)->r, float(x * 100 + y));
    EXPECT_EQ(assertionText([&] {
                  Manip::setPixelRegion(narrow, {2, 8, 13, 15});
              }),
              "prevRegion.contains( subRegion )");
    EXPECT_EQ(assertionText([&] {
                  Manip::setPixelRegion(narrow, {1, 7, 13, 15});
              }),
              "prevRegion.contains( subRegion )");
    Manip::setPixelRegion(narrow, {});
    EXPECT_TRUE(narrow.getPixelRegion().isEmpty());

    IxTile* array = Manip::createArray(3);
    EXPECT_FALSE(array[2].isValid());
    array[1] = whole;
    Manip::destroyArray(array);
}

TEST_F(TileMemory, SingleOwnershipLooksThroughToTheBuffer) {
    EXPECT_FALSE(Manip::isSinglyOwned(IxTile::INVALID_TILE));
    IxTile const t = makeTile(rgbaFloat(), {0, 4, 0, 4});
    EXPECT_TRUE(Manip::isSinglyOwned(t));
    {
        IxTile const copy = t;
        EXPECT_FALSE(Manip::isSinglyOwned(t));
    }
    {
        IxReadGuard r(t);
        EXPECT_FALSE(Manip::isSinglyOwned(t));
    }
    EXPECT_TRUE(Manip::isSinglyOwned(t));
    IxTile const heap =
        Manip::createTile(rgbaFloat(), {0, 1, 0, 1}, RCShdPtr<IxMemory>(new IxMemoryHeap(64)), {});
    EXPECT_TRUE(Manip::isSinglyOwned(heap));

    std::optional<ImImage> image =
        ImImage::create(ImLayout(ImPixelFormat(4, ImPixelFormat::FLOAT32), {0, 4, 0, 4}));
    IxTile const shared = IxUtil::imImageConstToIxTile(*image, Rational(1), {});
    EXPECT_EQ(Manip::getMemory(shared)->getRefCount(), 1);
    EXPECT_FALSE(Manip::isSinglyOwned(shared));
    image.reset();
    EXPECT_TRUE(Manip::isSinglyOwned(shared));
}

TEST_F(TileMemory, TilesAndImagesShareTheSameBytes) {
    IxTile const t = makeTile(rgbaFloat(), {5, 9, -2, 3}, {0, 0, 0, 1});
    ImImageConst const image = IxUtil::ixTileToImImageConst(t);
    EXPECT_EQ(image.getBuffer(),
              dynamic_cast<TileMemoryBuffer*>(Manip::getMemory(t).get())->getBuffer());
    EXPECT_EQ(image.getLayout().getRegion(), t.getPixelRegion());
    EXPECT_EQ(image.getLayout().getLineStride(), t.getLineStride());
    {
        IxWriteGuard w(t);
        redAt(w, 8, 2) = 42.0f;
        ImReadGuard r(image);
        EXPECT_EQ(r.getAddress(8, 2), w.getAddress(8, 2));
        EXPECT_EQ(reinterpret_cast<float const*>(r.getAddress(8, 2))[0], 42.0f);
    }
    // A narrowed tile's image starts at the narrowed region.
    IxTile narrow = t;
    Manip::setPixelRegion(narrow, {7, 9, 0, 3});
    ImImageConst const narrowImage = IxUtil::ixTileToImImageConst(narrow);
    {
        ImReadGuard r(narrowImage);
        EXPECT_EQ(reinterpret_cast<float const*>(r.getAddress(8, 2))[0], 42.0f);
    }

    // And back: an image's tile writes into the image.
    ImImage const im =
        ImImage::create(ImLayout(ImPixelFormat(1, ImPixelFormat::UINT8), {0, 70, 0, 3}));
    IxTile const back = IxUtil::imImageConstToIxTile(im, Rational(2), {0.5f, 0, 0, 1});
    EXPECT_EQ(back.getPixelFormat(),
              IxPixelFormat(IxPixelFormat::ALPHA, IxPixelFormat::UINT8, Rational(2)));
    EXPECT_EQ(back.getFillColor(), (CoRgbaColorTyped<float>{0.5f, 0, 0, 1}));
    {
        IxWriteGuard w(back);
        *w.getAddress(69, 2) = std::byte{7};
    }
    ImReadGuard r(im);
    EXPECT_EQ(*r.getAddress(69, 2), std::byte{7});

    ImImage const loose =
        ImImage::create(ImLayout(ImPixelFormat(4, ImPixelFormat::FLOAT32), {0, 3, 0, 3}, 16));
    EXPECT_EQ(assertionText([&] { IxUtil::imImageConstToIxTile(loose, Rational(1), {}); }),
              "image.getLayout().getLineAlign() == IxTile::MIN_LINE_ALIGN");
    IxTile const onHeap =
        Manip::createTile(rgbaFloat(), {0, 1, 0, 1}, RCShdPtr<IxMemory>(new IxMemoryHeap(64)), {});
    EXPECT_EQ(assertionText([&] { IxUtil::ixTileToImImageConst(onHeap); }), "buffer != nullptr");
}

TEST_F(TileMemory, PixelFormatsBetweenTilesAndImages) {
    EXPECT_EQ(IxUtil::ixToImPixelFormat(rgbaFloat()), ImPixelFormat(4, ImPixelFormat::FLOAT32));
    EXPECT_EQ(IxUtil::imToIxPixelFormat(ImPixelFormat(3, ImPixelFormat::FLOAT16), Rational(4, 3)),
              IxPixelFormat(IxPixelFormat::RGB, IxPixelFormat::FLOAT16, Rational(4, 3)));
    EXPECT_EQ(assertionText([] { IxUtil::ixToImPixelFormat(IxPixelFormat::INVALID_FORMAT); }),
              "comps >= 1 && comps <= 4");
    EXPECT_EQ(assertionText([] { IxUtil::imToIxPixelFormat(ImPixelFormat(), Rational(1)); }),
              "comps >= 1");
    EXPECT_EQ(assertionText([] { IxUtil::imToIxPixelFormat(ImPixelFormat(2, 8), Rational(1)); }),
              "_comps == ALPHA || _comps == RGB || _comps == RGBA");
    EXPECT_EQ(assertionText([] { IxUtil::imToIxPixelFormat(ImPixelFormat(1, 8), Rational(0)); }),
              "_aspect > Rational(0)");
    EXPECT_EQ(assertionText([] { IxPixelFormat(1, 24); }),
              "_depth == UINT8 || _depth == FLOAT16 || _depth == FLOAT32 || _depth == COMPLEX");
}

TEST_F(TileMemory, CopiesBetweenTileAndImage) {
    IxPixelFormat const f(IxPixelFormat::RGB, IxPixelFormat::UINT8);
    ImPixelFormat const imf(3, ImPixelFormat::UINT8);
    GeRectangle<int> const region(0, 30, 0, 6); // 90 bytes a line, 128 with the padding
    IxTile const tile = makeTile(f, region);
    ImImage const image = ImImage::create(ImLayout(imf, region));
    auto fillTile = [&](std::uint8_t padding) {
        IxWriteGuard w(tile);
        for (int y = 0; y < 6; ++y) {
            std::byte* line = w.getAddress(0, y);
            for (int i = 0; i < 128; ++i)
                line[i] = std::byte(i < 90 ? (y * 90 + i) % 251 : padding);
        }
    };
    auto clearImage = [&] {
        ImWriteGuard w(image);
        std::memset(w.getFirst(), 0, image.getLayout().getBufferSize());
    };
    fillTile(0xab);
    clearImage();
    {
        // Whole regions of the same stride: one block, padding and all, up to the last pixel.
        ImWriteGuard dst(image);
        IxReadGuard src(tile);
        IxUtil::ixToImCopy(dst, src, nullptr, nullptr);
        for (int y = 0; y < 6; ++y)
            for (int i = 0; i < 128; ++i) {
                std::byte const want = i < 90 ? std::byte((y * 90 + i) % 251)
                                              : (y < 5 ? std::byte{0xab} : std::byte{0});
                ASSERT_EQ(dst.getAddress(0, y)[i], want) << y << " " << i;
            }
    }
    clearImage();
    {
        // Part of the lines: line by line, the padding untouched.
        ImWriteGuard dst(image);
        IxReadGuard src(tile);
        GeRectangle<int> const from(2, 12, 1, 5);
        GeRectangle<int> const to(20, 30, 2, 6);
        IxUtil::ixToImCopy(dst, src, &to, &from);
        for (int y = 0; y < 6; ++y)
            for (int i = 0; i < 128; ++i) {
                bool const inside = y >= 2 && i >= 60 && i < 90;
                std::byte const want =
                    inside ? std::byte(((y - 1) * 90 + i - 54) % 251) : std::byte{0};
                ASSERT_EQ(dst.getAddress(0, y)[i], want) << y << " " << i;
            }
    }
    {
        // And back into a tile with other lines.
        IxTile const other = makeTile(f, {100, 110, 50, 54});
        IxWriteGuard dst(other);
        ImReadGuard src(image);
        GeRectangle<int> const from(20, 30, 2, 6);
        IxUtil::imToIxCopy(dst, src, nullptr, &from);
        for (int y = 0; y < 4; ++y)
            ASSERT_EQ(std::memcmp(dst.getAddress(100, 50 + y), src.getAddress(20, 2 + y), 30), 0);

        EXPECT_EQ(assertionText([&] { IxUtil::imToIxCopy(dst, src, nullptr, nullptr); }),
                  "dstR.getWidth() == srcR.getWidth()");
        GeRectangle<int> const tall(100, 110, 50, 53);
        EXPECT_EQ(assertionText([&] { IxUtil::imToIxCopy(dst, src, &tall, &from); }),
                  "dstR.getHeight() == srcR.getHeight()");
        GeRectangle<int> const none;
        IxUtil::imToIxCopy(dst, src, &none, &none);
    }
    {
        IxTile const alpha =
            makeTile(IxPixelFormat(IxPixelFormat::ALPHA, IxPixelFormat::UINT8), region);
        IxReadGuard src(alpha);
        ImWriteGuard dst(image);
        EXPECT_EQ(assertionText([&] { IxUtil::ixToImCopy(dst, src, nullptr, nullptr); }),
                  "dst.depth == src.depth && dst.comps == src.comps");
    }
}

TEST_F(TileMemory, LoadingOnAWorkerHandsItsSlotOn) {
    LazyFactory lazy;
    MbBufferFactory* previous = MbBufferFactoryRegistry::setFactory(0, &lazy);
    struct Restore {
        MbBufferFactory* f;
        ~Restore() { MbBufferFactoryRegistry::setFactory(0, f); }
    } restore{previous};

    IxTile const t = makeTile(rgbaFloat(), {0, 4, 0, 4});
    {
        IxWriteGuard w(t);
        redAt(w, 3, 3) = 9.0f;
    }
    EXPECT_EQ(lazy._log.pins.load(), 1);
    EXPECT_EQ(lazy._log.pinsWhileBlocked.load(), 0);

    float seen = 0.0f;
    std::int32_t countInside = -1;
    runOnWorker([&] {
        std::int32_t const before = guardsOnThread();
        IxReadGuard r(t);
        seen = r.getPixel<CoRgbaColorTyped<float>>(3, 3)->r;
        countInside = guardsOnThread() - before;
    });
    EXPECT_EQ(seen, 9.0f);
    EXPECT_EQ(countInside, 1);
    EXPECT_EQ(lazy._log.pins.load(), 2);
    EXPECT_EQ(lazy._log.pinsWhileBlocked.load(), 1);

    // A failed load reaches the caller, and nothing stays counted or held.
    lazy._log.fail = true;
    std::int32_t const before = guardsOnThread();
    try {
        IxReadGuard r(t);
        ADD_FAILURE() << "the load should have failed";
    } catch (ExBase const& e) {
        EXPECT_EQ(e.getReason(), "load failed");
    }
    EXPECT_EQ(guardsOnThread(), before);
    EXPECT_THROW(runOnWorker([&] { IxWriteGuard w(t); }), ExBase);
}
