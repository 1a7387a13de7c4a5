#include "IxConvertServices.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Vn;

namespace {
// Kept out of the optimiser's reach so the multiply happens at run time.
volatile float g_tiny = 1e-39f; // a denormal
volatile float g_one = 1.0f;
} // namespace

TEST(IxConvertServices, FlushesDenormalsOnTheCallingThreadOnly) {
    std::thread([] {
        EXPECT_NE(g_tiny * g_one, 0.0f);
        IxConvertServices::configureSSE();
        EXPECT_TRUE(IxConvertServices::isSSEConfigured());
        EXPECT_EQ(g_tiny * g_one, 0.0f);
    }).join();
    std::thread([] {
        EXPECT_FALSE(IxConvertServices::isSSEConfigured());
        EXPECT_NE(g_tiny * g_one, 0.0f);
    }).join();
}
