#include "EvEventManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

using namespace Vn;

TEST(EvEventManager, RunsEventsInPostingOrderOnOneThread) {
    auto& ev = EvEventManager::getInstance();
    std::mutex m;
    std::vector<int> order;
    std::thread::id eventThread;
    std::atomic<bool> allOnEventThread{true};
    for (int i = 0; i < 200; ++i)
        ev.post([&, i] {
            std::lock_guard g(m);
            if (i == 0)
                eventThread = std::this_thread::get_id();
            else if (std::this_thread::get_id() != eventThread)
                allOnEventThread = false;
            if (!EvEventManager::getInstance().isEventThread())
                allOnEventThread = false;
            order.push_back(i);
        });
    ev.flush();
    std::lock_guard g(m);
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_TRUE(allOnEventThread);
    EXPECT_NE(eventThread, std::this_thread::get_id());
}

TEST(EvEventManager, AFailingEventDoesNotStopTheOthersAndStopRestarts) {
    auto& ev = EvEventManager::getInstance();
    std::atomic<int> ran{0};
    ev.post([] { throw std::runtime_error("bad event"); });
    ev.post([&] { ++ran; });
    ev.stop(); // runs what is queued first
    EXPECT_EQ(ran.load(), 1);
    ev.post([&] { ++ran; });
    ev.flush();
    EXPECT_EQ(ran.load(), 2);
}
