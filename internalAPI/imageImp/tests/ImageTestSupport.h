#pragma once

// Tiles and a started library for the image memory tests.

#include "InPackageInit.h"
#include "IxGuardBase.h"
#include "IxMemResource.h"
#include "IxMemResourceImp.h"
#include "IxTileManip.h"

#include <gtest/gtest.h>

namespace VnTest {

using namespace Vn;

// The privileged tile operations, open to the tests.
struct Manip : IxTileManip {
    using IxTileManip::createArray;
    using IxTileManip::createTile;
    using IxTileManip::destroyArray;
    using IxTileManip::getMemory;
    using IxTileManip::isSinglyOwned;
    using IxTileManip::setPixelRegion;
};

// A tile with memory of its own from the resource.
inline IxTile makeTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                       CoRgbaColorTyped<float> const& fill = {}) {
    return Manip::createTile(
        format, region,
        IxMemResource::getInstance().allocate(IxTile::computeBufferSize(format, region)), fill);
}

inline IxPixelFormat rgbaFloat() {
    return IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
}

inline std::int32_t guardsOnThread() {
    return IxMemResourceImp::TileMemoryBuffer::getNbGuardedByThread();
}

// Starts the packages for each test; no guard may be left open on the thread at its end.
class ImageTest : public ::testing::Test {
protected:
    void SetUp() override {
        InInitMgr::getInstance().initialize();
        _guardsBefore = guardsOnThread();
    }
    void TearDown() override {
        EXPECT_EQ(guardsOnThread(), _guardsBefore);
        InInitMgr::getInstance().finalize();
    }
    std::int32_t _guardsBefore = 0;
};

} // namespace VnTest
