#include "LkThreadOpaqueData.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

// Records what the factory functions did; one per test.
struct Log {
    std::mutex lock;
    int made = 0;
    std::vector<int*> freed;
    int tag = 0;
};

void* makeInt(void* context) {
    auto* log = static_cast<Log*>(context);
    std::lock_guard<std::mutex> g(log->lock);
    ++log->made;
    return new int(log->tag);
}

void freeInt(void* pointee, void* context) {
    auto* log = static_cast<Log*>(context);
    std::lock_guard<std::mutex> g(log->lock);
    log->freed.push_back(static_cast<int*>(pointee));
    delete static_cast<int*>(pointee);
}

bool wasFreed(Log& log, void* p) {
    std::lock_guard<std::mutex> g(log.lock);
    return std::find(log.freed.begin(), log.freed.end(), p) != log.freed.end();
}

} // namespace

TEST(LkThreadOpaqueData, OneObjectPerThreadMadeAtFirstUseFreedAtThreadExitOrDestruction) {
    Log log;
    auto data = LkThreadOpaqueDataFactory::create("test", &makeInt, &freeInt, &log);
    EXPECT_EQ(data->getName(), "test");
    EXPECT_EQ(log.made, 0);
    void* mine = data->getPointee();
    EXPECT_EQ(data->getPointee(), mine);
    EXPECT_EQ(log.made, 1);
    void* theirs = nullptr;
    std::thread([&] {
        theirs = data->getPointee();
        EXPECT_EQ(data->getPointee(), theirs);
    }).join();
    EXPECT_NE(mine, theirs);
    EXPECT_EQ(log.made, 2);
    EXPECT_EQ(data->getPointee(), mine);
    EXPECT_TRUE(wasFreed(log, theirs));
    EXPECT_FALSE(wasFreed(log, mine));
    EXPECT_EQ(data->getNbPointees(), 1);
    data.reset();
    EXPECT_TRUE(wasFreed(log, mine));
    EXPECT_EQ(log.freed.size(), 2u);
}

TEST(LkThreadOpaqueData, NewFactoryNeverSeesObjectsOfADeadOne) {
    Log first;
    first.tag = 1;
    Log second;
    second.tag = 2;
    auto a = LkThreadOpaqueDataFactory::create("a", &makeInt, &freeInt, &first);
    EXPECT_EQ(*static_cast<int*>(a->getPointee()), 1);
    a.reset();
    // The new factory may take the dead one's place; this thread must still get a new object.
    auto b = LkThreadOpaqueDataFactory::create("b", &makeInt, &freeInt, &second);
    EXPECT_EQ(*static_cast<int*>(b->getPointee()), 2);
    EXPECT_EQ(second.made, 1);
    b.reset();
    EXPECT_EQ(second.freed.size(), 1u);
}

TEST(LkThreadOpaqueData, ManyFactoriesOnManyThreads) {
    Log log;
    std::vector<OPtr<LkThreadOpaqueData>> all;
    for (int i = 0; i < 40; ++i)
        all.push_back(LkThreadOpaqueDataFactory::create("many", &makeInt, &freeInt, &log));
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            std::vector<void*> seen;
            for (auto& d : all)
                seen.push_back(d->getPointee());
            for (std::size_t i = 0; i < all.size(); ++i)
                EXPECT_EQ(all[i]->getPointee(), seen[i]);
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(log.made, 120);
    EXPECT_EQ(log.freed.size(), 120u);
    all.clear();
}

TEST(LkThreadOpaqueData, NullObjectIsRefused) {
    auto data = LkThreadOpaqueDataFactory::create(
        "null", [](void*) -> void* { return nullptr; }, [](void*, void*) {});
    EXPECT_THROW(data->getPointee(), ExAssertionFailed);
}
