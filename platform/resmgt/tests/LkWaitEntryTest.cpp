#include "LkWaitEntry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Vn;

TEST(LkWaitEntry, EarlySignalIsKeptAndWaitReturnsWithoutSleeping) {
    LkWaitEntry& e = LkWaitEntry::getEntry();
    EXPECT_FALSE(e.tryWait());
    e.signal();
    ASSERT_TRUE(e.tryWait());
    // Several signals before one wait wake it once.
    e.signal();
    e.signal();
    ASSERT_TRUE(e.tryWait());
    EXPECT_FALSE(e.tryWait());
    std::uint64_t sleeps = e.getNbSleeps();
    e.signal();
    e.wait();
    EXPECT_EQ(e.getNbSleeps(), sleeps);
    EXPECT_FALSE(e.tryWait());
}

TEST(LkWaitEntry, WaitSleepsUntilSignalled) {
    LkWaitEntry* entry = nullptr;
    std::atomic<LkWaitEntry*> published{nullptr};
    std::atomic<bool> woken{false};
    std::thread t([&] {
        LkWaitEntry& own = LkWaitEntry::getEntry();
        published.store(&own);
        own.wait();
        woken.store(true);
    });
    while (!(entry = published.load()))
        std::this_thread::yield();
    while (entry->getNbSleeps() == 0)
        std::this_thread::yield();
    EXPECT_FALSE(woken.load());
    entry->signal();
    t.join();
    EXPECT_TRUE(woken.load());
}

TEST(LkWaitEntry, OneEntryPerThreadWithTheLinkFirst) {
    LkWaitEntry& mine = LkWaitEntry::getEntry();
    EXPECT_EQ(&mine, &LkWaitEntry::getEntry());
    LkWaitEntry* other = nullptr;
    std::thread([&] { other = &LkWaitEntry::getEntry(); }).join();
    EXPECT_NE(&mine, other);
    EXPECT_EQ(static_cast<void*>(static_cast<LkSListNode*>(&mine)), static_cast<void*>(&mine));
}
