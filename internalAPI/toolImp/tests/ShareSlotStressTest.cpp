#include "PiShareSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

// A frame is put again by every tile that gathered it while other tiles read it: once it is
// there, no reader may miss it, or the graph below is asked twice for the same frame.
TEST(ShareSlotStress, ReadersNeverMissAValueThatIsPutAgain) {
    PiShareSlot<std::string> slot;
    PiShareKey const key{1.5, 1, 0, {}, 3};
    std::string const frame(4096, 'f'); // long enough that a copy is not instant
    slot.put(key, frame);
    std::atomic<bool> stop{false};
    std::atomic<int> misses{0}, wrong{0}, reads{0};
    std::vector<std::thread> threads;
    for (int r = 0; r < 2; ++r)
        threads.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                std::optional<std::string> got = slot.get(key, false);
                if (!got)
                    misses.fetch_add(1);
                else if (*got != frame)
                    wrong.fetch_add(1);
                reads.fetch_add(1);
            }
        });
    for (int i = 0; i < 20000; ++i)
        slot.put(key, frame);
    while (reads.load() < 20000)
        std::this_thread::yield();
    stop = true;
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(misses.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
    // Another key or a later generation is not the kept value.
    EXPECT_FALSE(slot.get(PiShareKey{1.5, 1, 0, {}, 4}, false));
    EXPECT_TRUE(slot.get(key, true));
    EXPECT_FALSE(slot.get(key, false));
}

} // namespace
