#include "ExBase.h"
#include "ImImageConst.h"
#include "IpCopy.h"
#include "IxScanlineCache.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

using namespace Vn;

TEST(ImLayout, PlacesLinesOnTheirAlignment) {
    ImPixelFormat const rgba(4, ImPixelFormat::FLOAT32);
    ImLayout const l(rgba, GeRectangle<int>(-3, 10, 5, 9));
    EXPECT_EQ(l.getLineStride(), 256);
    EXPECT_EQ(l.getByteOffset(-3, 5), 0u);
    EXPECT_EQ(l.getByteOffset(9, 8), 3u * 256 + 12 * 16);
    EXPECT_EQ(l.getBufferSize(), 4u * 256);
    EXPECT_EQ(l.getRequiredSize(), 3u * 256 + 13 * 16);

    ImLayout const narrow(ImPixelFormat(1, ImPixelFormat::UINT8), GeRectangle<int>(0, 3, 0, 2), 16);
    EXPECT_EQ(narrow.getLineStride(), 16);
    EXPECT_EQ(ImLayout(rgba, GeRectangle<int>(4, 4, 0, 10)).getBufferSize(), 0u);
    // A stride too short for a line, or off the line alignment, is refused.
    EXPECT_THROW(ImLayout(rgba, GeRectangle<int>(0, 8, 0, 1), 64, 64, 0), ExAssertionFailed);
    EXPECT_THROW(ImLayout(rgba, GeRectangle<int>(0, 2, 0, 1), 64, 96, 0), ExAssertionFailed);
    EXPECT_THROW(ImPixelFormat(5, 8), ExAssertionFailed);
    EXPECT_THROW(ImPixelFormat(1, 12), ExAssertionFailed);
}

TEST(ImImage, CopiesShareTheirPixels) {
    ImImage const a =
        ImImage::create(ImLayout(ImPixelFormat(3, ImPixelFormat::UINT8), {0, 5, 0, 5}));
    ImImageConst const b = a;
    EXPECT_EQ(a.getBuffer(), b.getBuffer());
    EXPECT_FALSE(a.getBuffer().isUniqueOwner());
    EXPECT_TRUE(MbAlignment::isAligned(a.getBuffer().getData(), 64));
    {
        ImWriteGuard w(a);
        *w.getAddress(4, 4) = std::byte{99};
    }
    ImReadGuard r(b);
    EXPECT_EQ(*r.getAddress(4, 4), std::byte{99});
    EXPECT_THROW(ImImageConst(ImLayout(ImPixelFormat(4, 32), {0, 100, 0, 100}),
                              ImMemoryBuffer(MbBuffer(64))),
                 ExAssertionFailed);
}

TEST(IpCopy, SetsAndCopiesWithinBothImagesConvertingFormats) {
    ImImage const dst =
        ImImage::create(ImLayout(ImPixelFormat(3, ImPixelFormat::UINT8), {0, 8, 0, 6}));
    ImImage const src =
        ImImage::create(ImLayout(ImPixelFormat(4, ImPixelFormat::FLOAT32), {4, 12, 2, 10}));
    ImWriteGuard d(dst);
    ipSet(d, {-5, 100, -5, 100}, {0.0f, 0.0f, 1.0f, 1.0f});
    ipSet(d, {1, 3, 1, 2}, {1.0f, 0.5f, 0.0f, 1.0f});
    auto px = [&](int x, int y) {
        std::byte const* p = d.getAddress(x, y);
        return std::to_integer<int>(p[0]) << 16 | std::to_integer<int>(p[1]) << 8 |
               std::to_integer<int>(p[2]);
    };
    EXPECT_EQ(px(1, 1), 0xff8000);
    EXPECT_EQ(px(2, 1), 0xff8000);
    EXPECT_EQ(px(3, 1), 0x0000ff);
    EXPECT_EQ(px(1, 2), 0x0000ff);
    EXPECT_EQ(px(7, 5), 0x0000ff);

    {
        ImWriteGuard s(src);
        ipSet(s, {4, 12, 2, 10}, {0.0f, 1.0f, 0.0f, 0.5f});
    }
    ImReadGuard s(src);
    ipCopy(d, s, {0, 100, 0, 4});
    EXPECT_EQ(px(3, 3), 0x0000ff); // left of the source
    EXPECT_EQ(px(4, 1), 0x0000ff); // above it
    EXPECT_EQ(px(4, 2), 0x00ff00);
    EXPECT_EQ(px(7, 3), 0x00ff00);
    EXPECT_EQ(px(7, 4), 0x0000ff); // below the copied rows

    // Same format: bytes move as they are.
    ImImage const twin = ImImage::create(src.getLayout());
    {
        ImWriteGuard t(twin);
        ipCopy(t, s, {0, 100, 0, 100});
    }
    ImReadGuard t(twin);
    for (int y = 2; y < 10; ++y)
        EXPECT_EQ(std::memcmp(t.getAddress(4, y), s.getAddress(4, y), 8 * 16), 0);
}

TEST(IxScanlineCache, NeedsAnImplementation) {
    ASSERT_EQ(IxScanlineCache<float>::getImplementationFactory(), nullptr);
    GeRectangle<int> const r(0, 4, 0, 4);
    EXPECT_THROW(IxScanlineCache<float>(r, r), ExAssertionFailed);
}
