#include "StackGuard.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

using namespace Vn;

TEST(StackGuard, NamesNestPerThreadAndUnwind) {
    ASSERT_EQ(StackGuard::getDepth(), 0);
    int const base = 0;
    {
        VN_STACK_GUARD("outer");
        {
            VN_STACK_GUARD("inner");
            EXPECT_EQ(StackGuard::getDepth(), base + 2);
            EXPECT_STREQ(StackGuard::getName(base + 1), "inner");
            EXPECT_EQ(StackGuard::describe(), "outer > inner");
            std::thread([] { EXPECT_EQ(StackGuard::getDepth(), 0); }).join();
        }
        EXPECT_STREQ(StackGuard::getName(base), "outer");
        EXPECT_STREQ(StackGuard::getName(base + 1), "");
    }
    try {
        VN_STACK_GUARD("throwing");
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(StackGuard::getDepth(), base);
}

TEST(StackGuard, DeepStacksKeepCountingBeyondTheirNames) {
    std::function<void(int)> recurse = [&](int n) {
        VN_STACK_GUARD("level");
        if (n > 1)
            return recurse(n - 1);
        EXPECT_EQ(StackGuard::getDepth(), StackGuard::kMaxDepth + 10);
        EXPECT_STREQ(StackGuard::getName(StackGuard::kMaxDepth - 1), "level");
        EXPECT_STREQ(StackGuard::getName(StackGuard::kMaxDepth), "");
        EXPECT_NE(StackGuard::describe().find("..."), std::string::npos);
    };
    recurse(StackGuard::kMaxDepth + 10);
    EXPECT_EQ(StackGuard::getDepth(), 0);
}
