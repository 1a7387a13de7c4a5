#include "Assertions.h"
#include "ExBase.h"

#include <gtest/gtest.h>

using namespace Vn;

TEST(Assertions, TextIsConditionAndPositionIsCarried) {
    int x = 3;
    try {
        VN_ASSERT(x == 4 && "never");
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "x == 4 && \"never\"");
        EXPECT_EQ(e.getFile(), "platform/base/tests/ExBaseTest.cpp");
        EXPECT_EQ(e.getLine(), __LINE__ - 5);
    }
}
