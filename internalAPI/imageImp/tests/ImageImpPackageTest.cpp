#include "CoRgbaColor.h"
#include "InPackageInit.h"
#include "IxMemResource.h"
#include "IxRollingScanlineBuffer.h"
#include "IxScanlineCache.h"

#include <gtest/gtest.h>

#include <complex>

using namespace Vn;

TEST(ImageImpPackage, InstallsTheTileMemoryAndTheLineImplementations) {
    InInitMgr::getInstance().initialize();
    EXPECT_TRUE(IxMemResource::isInitialized());
    EXPECT_EQ(IxMemResource::getInstance().allocate(100)->getSize(), 100u);
    EXPECT_NE(IxRollingScanlineBuffer<float>::getImplementationFactory(), nullptr);
    EXPECT_NE(IxRollingScanlineBuffer<CoRgbaColorTyped<float>>::getImplementationFactory(),
              nullptr);
    EXPECT_NE(IxScanlineCache<float>::getImplementationFactory(), nullptr);
    EXPECT_NE(IxScanlineCache<std::complex<float>>::getImplementationFactory(), nullptr);
    EXPECT_NE(IxScanlineCache<CoRgbaColorTyped<float>>::getImplementationFactory(), nullptr);
    InInitMgr::getInstance().finalize();
    EXPECT_FALSE(IxMemResource::isInitialized());
    // A second resource while one is installed is refused.
    InInitMgr::getInstance().initialize();
    struct Other : IxMemResource {
        RCShdPtr<IxMemory> allocate(unsigned int) override { return {}; }
    };
    EXPECT_ANY_THROW(IxMemResource::initialize(new Other));
    InInitMgr::getInstance().finalize();
}
