#include "MbBuffer.h"
#include "ExBase.h"
#include "MbAlignment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

// A buffer that is out of memory until pinned, and lets its data go at the last unpin.
class PagedBufferImp : public MbBufferImp {
public:
    PagedBufferImp(std::size_t size, int* pins, int* unpins)
        : MbBufferImp("paged", size, MbAlignment(63), nullptr, false), _store(size, 64),
          _pins(pins), _unpins(unpins) {}
    std::byte* pin() override {
        ++*_pins;
        if (_nbPinned++ == 0)
            _data = _store.getData();
        return _data;
    }
    void unpin() noexcept override {
        ++*_unpins;
        if (--_nbPinned == 0)
            _data = nullptr;
    }

private:
    MbBuffer _store;
    int* _pins;
    int* _unpins;
    int _nbPinned = 0;
};

class CountingFactory : public MbBufferFactory {
public:
    MbBuffer create(char const* name, std::size_t size, MbAlignment const& alignment) override {
        ++_made;
        return MbBufferFactoryRegistry::getDefaultFactory().create(name, size, alignment);
    }
    int _made = 0;
};

} // namespace

TEST(MbAlignment, ArithmeticMaskAndOffset) {
    EXPECT_TRUE(MbAlignment::isPowerOfTwo(64));
    EXPECT_FALSE(MbAlignment::isPowerOfTwo(48));
    EXPECT_FALSE(MbAlignment::isPowerOfTwo(0));
    EXPECT_EQ(MbAlignment::roundUp(65, 64), 128u);
    EXPECT_EQ(MbAlignment::roundUp(64, 64), 64u);
    EXPECT_EQ(MbAlignment::roundDown(127, 64), 64u);
    EXPECT_EQ(MbAlignment::naturalAlignment(96), 32u);
    EXPECT_EQ(MbAlignment::naturalAlignment(8), 16u);
    EXPECT_EQ(MbAlignment::naturalAlignment(3 * 8192), 4096u);
    EXPECT_EQ(MbAlignment::naturalAlignment(0), 16u);
    alignas(64) char chars[128];
    EXPECT_TRUE(MbAlignment::isAligned(chars, 64));
    EXPECT_FALSE(MbAlignment::isAligned(chars + 8, 16));
    EXPECT_EQ(MbAlignment::alignUp(chars + 1, 64), chars + 64);

    EXPECT_TRUE(MbAlignment::checkPow2Minus1(0));
    EXPECT_TRUE(MbAlignment::checkPow2Minus1(63));
    EXPECT_FALSE(MbAlignment::checkPow2Minus1(64));
    EXPECT_FALSE(MbAlignment::checkPow2Minus1(62));
    EXPECT_THROW(MbAlignment(64), ExAssertionFailed);
    EXPECT_THROW(MbAlignment(15, 16), ExAssertionFailed);

    MbAlignment const a(63, 8);
    EXPECT_EQ(a.getAlignment(), 64u);
    alignas(64) std::byte buf[256];
    std::byte* p = a.apply(buf + 1);
    EXPECT_EQ(p, buf + 56);
    EXPECT_TRUE(a.isSatisfiedBy(p));
    EXPECT_FALSE(a.isSatisfiedBy(p + 1));
    EXPECT_EQ(a.apply(p), p);
}

TEST(MbBuffer, ANewBufferIsZeroedAlignedAndSharedByItsCopiesUntilTheLastFreesIt) {
    std::int64_t const live = MbHeapBufferFactory::getNbLiveBuffers();
    {
        MbBuffer a(1000, 256);
        ASSERT_EQ(a.getSize(), 1000u);
        EXPECT_EQ(a.getAlignment(), 256u);
        EXPECT_TRUE(MbAlignment::isAligned(a.getData(), 256));
        EXPECT_TRUE(std::all_of(a.getData(), a.getData() + 1000,
                                [](std::byte x) { return x == std::byte{0}; }));
        EXPECT_TRUE(a.isUniqueOwner());
        EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live + 1);
        {
            MbBuffer b = a;
            EXPECT_EQ(b.getData(), a.getData());
            EXPECT_FALSE(a.isUniqueOwner());
            EXPECT_FALSE(b.isUniqueOwner());
            EXPECT_EQ(a.getNbOwners(), 2);
            b.getData()[999] = std::byte{7};
        }
        EXPECT_TRUE(a.isUniqueOwner());
        EXPECT_EQ(a.getData()[999], std::byte{7});
        std::byte const* data = a.getData();
        MbBuffer moved = std::move(a);
        EXPECT_TRUE(a.isNull());
        EXPECT_TRUE(a.isEmpty());
        EXPECT_EQ(a.getData(), nullptr);
        EXPECT_FALSE(a.isUniqueOwner());
        EXPECT_TRUE(moved.isUniqueOwner());
        EXPECT_EQ(moved.getData(), data);
    }
    EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live);
    EXPECT_THROW(MbBuffer(10, 24), ExAssertionFailed);
    EXPECT_TRUE(MbBuffer().isLoaded());
    EXPECT_TRUE(MbBuffer(0).isNull());
}

TEST(MbBuffer, DefaultFactoryHonoursMaskAndOffsetForEverySize) {
    MbBufferFactory& f = MbBufferFactoryRegistry::getFactory(0);
    for (std::size_t size : {std::size_t(1), std::size_t(100), std::size_t(65000),
                             std::size_t(70000), std::size_t(5 << 20)}) {
        for (MbAlignment a :
             {MbAlignment(15), MbAlignment(63), MbAlignment(63, 8), MbAlignment(4095)}) {
            MbBuffer b = f.create("test", size, a);
            ASSERT_EQ(b.getSize(), size);
            EXPECT_TRUE(b.isLoaded());
            EXPECT_EQ(b.getAlignmentSpec(), a);
            EXPECT_EQ(b.getAlignment(), a.getAlignment());
            EXPECT_TRUE(a.isSatisfiedBy(b.getData())) << size << " " << a.getMask();
            EXPECT_STREQ(b.getName(), "test");
            // Every byte is ours: the sanitizer catches a short block.
            std::memset(b.getData(), 0x5a, size);

            // The room beside the data is the caller's, and apart from the data.
            void* room = nullptr;
            MbBuffer roomy = f.createWithRoom("test", size, a, 40, room);
            ASSERT_NE(room, nullptr);
            EXPECT_TRUE(MbAlignment::isAligned(room, 16));
            EXPECT_TRUE(a.isSatisfiedBy(roomy.getData()));
            std::memset(roomy.getData(), 0x5a, size);
            std::memset(room, 0x33, 40);
            EXPECT_EQ(roomy.getData()[0], std::byte{0x5a});
            EXPECT_EQ(roomy.getData()[size - 1], std::byte{0x5a});
        }
    }
    EXPECT_TRUE(f.create("test", 0, MbAlignment(63)).isNull());
    void* room = &f;
    EXPECT_TRUE(f.createWithRoom("test", 0, MbAlignment(63), 40, room).isNull());
    EXPECT_EQ(room, nullptr);
}

TEST(MbBuffer, LargeBlocksAreRecycledAndTrimmed) {
    MbBufferFactory& f = MbBufferFactoryRegistry::getFactory(0);
    std::size_t const size = 3 << 20;
    std::byte* first;
    {
        MbBuffer b = f.create("test", size, MbAlignment(63));
        first = b.getData();
    }
    {
        MbBuffer again = f.create("test", size, MbAlignment(63));
        EXPECT_EQ(again.getData(), first);
    }
    // More blocks than a thread keeps: the rest go to the shared cache, which trim empties.
    {
        std::vector<MbBuffer> many;
        for (int i = 0; i < 8; ++i)
            many.push_back(f.create("test", size + 4096, MbAlignment(63)));
        std::set<std::byte*> distinct;
        for (MbBuffer const& b : many)
            distinct.insert(const_cast<std::byte*>(b.getData()));
        EXPECT_EQ(distinct.size(), many.size());
    }
    EXPECT_GT(MbHeapBufferFactory::getCachedBytes(), 0u);
    MbHeapBufferFactory::trim();
    EXPECT_EQ(MbHeapBufferFactory::getCachedBytes(), 0u);
}

TEST(MbBuffer, BuffersMayDieOnAnotherThread) {
    std::int64_t const live = MbHeapBufferFactory::getNbLiveBuffers();
    std::vector<MbBuffer> made;
    for (std::size_t size : {std::size_t(200), std::size_t(1 << 20)})
        for (int i = 0; i < 6; ++i)
            made.push_back(
                MbBufferFactoryRegistry::getFactory(0).create("test", size, MbAlignment(63)));
    std::thread([&] { made.clear(); }).join();
    EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live);
}

TEST(MbBuffer, AnEndingThreadHandsItsCachedBlocksOn) {
    MbHeapBufferFactory::trim();
    std::int64_t const live = MbHeapBufferFactory::getNbLiveBuffers();
    constexpr std::size_t size = 5 << 20;
    std::thread([] {
        // Made before the thread's caches, so destroyed after them: its block is freed once the
        // thread's cache is gone and must reach the shared side all the same.
        static thread_local std::optional<MbBuffer> late;
        std::optional<MbBuffer>& slot = late;
        MbBufferFactory& f = MbBufferFactoryRegistry::getFactory(0);
        slot.emplace(f.create("late", size, MbAlignment(63)));
        MbBuffer kept = f.create("kept", size, MbAlignment(63));
    }).join();
    EXPECT_EQ(MbHeapBufferFactory::getNbLiveBuffers(), live);
    EXPECT_GE(MbHeapBufferFactory::getCachedBytes(), 2 * size);
    MbHeapBufferFactory::trim();
}

TEST(MbBufferFactoryRegistry, InstallsAndRestoresFactories) {
    CountingFactory counting;
    MbBufferFactory* previous = MbBufferFactoryRegistry::setFactory(0, &counting);
    EXPECT_EQ(previous, &MbBufferFactoryRegistry::getDefaultFactory());
    MbBuffer b = MbBufferFactoryRegistry::getFactory(0).create("test", 10, MbAlignment(63));
    EXPECT_EQ(counting._made, 1);
    // A factory that gives no room makes the buffer all the same.
    void* room = &counting;
    MbBuffer const roomless = counting.createWithRoom("test", 10, MbAlignment(63), 40, room);
    EXPECT_EQ(room, nullptr);
    EXPECT_EQ(roomless.getSize(), 10u);
    EXPECT_EQ(counting._made, 2);
    EXPECT_EQ(MbBufferFactoryRegistry::setFactory(0, nullptr), &counting);
    EXPECT_EQ(&MbBufferFactoryRegistry::getFactory(0),
              &MbBufferFactoryRegistry::getDefaultFactory());

    EXPECT_THROW(MbBufferFactoryRegistry::getFactory(3), ExAssertionFailed);
    EXPECT_EQ(MbBufferFactoryRegistry::setFactory(3, &counting), nullptr);
    EXPECT_EQ(&MbBufferFactoryRegistry::getFactory(3), &counting);
    MbBufferFactoryRegistry::setFactory(3, nullptr);
    EXPECT_THROW(MbBufferFactoryRegistry::getFactory(-1), ExAssertionFailed);
    EXPECT_THROW(MbBufferFactoryRegistry::getFactory(MbBufferFactoryRegistry::kNbFactories),
                 ExAssertionFailed);
}

TEST(MbBufferGuards, PinWhileTheyLive) {
    int pins = 0;
    int unpins = 0;
    MbBuffer b(RCShdPtr<MbBufferImp>(new PagedBufferImp(128, &pins, &unpins)));
    EXPECT_FALSE(b.isLoaded());
    {
        MbBufferWrGuardImp w(b);
        ASSERT_NE(w.getData(), nullptr);
        EXPECT_TRUE(b.isLoaded());
        w.getData()[5] = std::byte{42};
        {
            MbBufferRdGuardImp r(b);
            EXPECT_EQ(r.getData()[5], std::byte{42});
        }
        EXPECT_TRUE(b.isLoaded());
    }
    EXPECT_FALSE(b.isLoaded());
    EXPECT_EQ(pins, 2);
    EXPECT_EQ(unpins, 2);

    // A resident buffer is never pinned, and a null one gives no data.
    MbBuffer resident(64);
    MbBufferRdGuardImp r(resident);
    EXPECT_EQ(r.getData(), resident.getData());
    MbBufferWrGuardImp none{MbBuffer()};
    EXPECT_EQ(none.getData(), nullptr);
}
