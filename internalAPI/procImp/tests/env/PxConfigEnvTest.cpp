#include "InPackageInit.h"
#include "PxConfig.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace Vn;

// The run's environment sets the tile-size variables and, in EXPECT_EXPX/EXPY, what the engine
// must make of them.
TEST(PxConfigEnv, TileSizeFromVariables) {
    char const* wantX = std::getenv("EXPECT_EXPX");
    char const* wantY = std::getenv("EXPECT_EXPY");
    ASSERT_TRUE(wantX && wantY) << "run through ctest, which sets the expectations";
    InInitMgr::getInstance().initialize();
    EXPECT_EQ(PxConfig::getTileSizeExpX(), std::atoi(wantX));
    EXPECT_EQ(PxConfig::getTileSizeExpY(), std::atoi(wantY));
    EXPECT_EQ(PxConfig::getTileSizeX(), 1 << std::atoi(wantX));
    InInitMgr::getInstance().finalize();
}
