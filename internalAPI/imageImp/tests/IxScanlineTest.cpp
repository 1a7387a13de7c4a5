#include "IxScanline.h"
#include "ExBase.h"
#include "ImageTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstring>
#include <vector>

using namespace Vn;
using namespace VnTest;
using Rgba = CoRgbaColorTyped<float>;

namespace {

// Two tiles side by side over x [0, 10) and rows [0, 4): x [0, 6) in 8 bits, x [6, 10) in
// floats. Red is x / 16, green y / 16, so both formats hold every value exactly.
struct Source {
    IxTile bytes = makeTile(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8), {0, 6, 0, 4});
    IxTile floats = makeTile(rgbaFloat(), {6, 10, 0, 4});
    Vector<IxReadGuard> guards;

    static Rgba at(int x, int y) {
        return Rgba{static_cast<float>(x) / 16.0f, static_cast<float>(y) / 16.0f, 0.0f, 1.0f};
    }

    Source() {
        IxWriteGuard b(bytes);
        IxWriteGuard f(floats);
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 6; ++x) {
                std::byte* p = b.getAddress(x, y);
                p[0] = std::byte(x * 16);
                p[1] = std::byte(y * 16);
                p[2] = std::byte{0};
                p[3] = std::byte{255};
            }
            for (int x = 6; x < 10; ++x)
                *f.getPixel<Rgba>(x, y) = at(x, y);
        }
        guards.emplace_back(bytes);
        guards.emplace_back(floats);
    }
};

// The source column of d steps from the start of a period of n, built by folding d back into
// range: a mirror repeats its edge pixel.
int reflect(int d, int n) {
    while (d < 0 || d >= n)
        d = d < 0 ? -d - 1 : 2 * n - 1 - d;
    return d;
}

int wrap(int d, int n) {
    while (d < 0)
        d += n;
    return d % n;
}

Rgba const kValue{0.25f, 0.5f, 0.75f, 1.0f};

} // namespace

using IxScanlineRead = ImageTest;

TEST_F(IxScanlineRead, ConvertsEachTilesFormat) {
    Source s;
    IxScanline<Rgba> line(0, 10, {IxPaddingPolicy<Rgba>::NOOP, kValue});
    line.readFrom(s.guards, 2);
    for (int x = 0; x < 10; ++x) {
        Rgba const want =
            x < 6 ? Rgba{float(x * 16) / 255.0f, 32.0f / 255.0f, 0.0f, 1.0f} : Source::at(x, 2);
        EXPECT_EQ(line[x], want) << x;
    }
    // Alpha lines take the alpha.
    IxScanline<float> alpha(4, 8, {IxPaddingPolicy<float>::NOOP, 0.0f});
    alpha.readFrom(s.guards, 0);
    for (int x = 4; x < 8; ++x)
        EXPECT_EQ(alpha[x], 1.0f);
}

TEST_F(IxScanlineRead, PadsByEveryMode) {
    Source s;
    int const x0 = -13;
    int const x1 = 25;
    auto expectRow = [&](IxScanline<Rgba> const& line, int sy, auto mapX, char const* what) {
        for (int x = x0; x < x1; ++x) {
            int const px = mapX(x);
            Rgba want = kValue;
            if (px >= 0) {
                want = Source::at(px, sy);
                if (px < 6)
                    want = Rgba{float(px * 16) / 255.0f, float(sy * 16) / 255.0f, 0.0f, 1.0f};
            }
            ASSERT_EQ(line[x], want) << what << " x " << x;
        }
    };
    for (int y : {-6, -1, 0, 3, 4, 9}) {
        IxScanline<Rgba> line(x0, x1, {IxPaddingPolicy<Rgba>::CONSTANT, kValue});
        line.readFrom(s.guards, y);
        bool const rowInside = y >= 0 && y < 4;
        expectRow(
            line, rowInside ? y : 0, [&](int x) { return rowInside && x >= 0 && x < 10 ? x : -1; },
            "constant");

        line.setPaddingPolicy({IxPaddingPolicy<Rgba>::EDGE, kValue});
        line.readFrom(s.guards, y);
        expectRow(
            line, std::clamp(y, 0, 3), [](int x) { return std::clamp(x, 0, 9); }, "edge");

        line.setPaddingPolicy({IxPaddingPolicy<Rgba>::REPEAT, kValue});
        line.readFrom(s.guards, y);
        expectRow(
            line, wrap(y, 4), [](int x) { return wrap(x, 10); }, "repeat");

        line.setPaddingPolicy({IxPaddingPolicy<Rgba>::MIRROR, kValue});
        line.readFrom(s.guards, y);
        expectRow(
            line, reflect(y, 4), [](int x) { return reflect(x, 10); }, "mirror");
    }
}

TEST_F(IxScanlineRead, NoPaddingNeedsCoverAndHolesGetTheValue) {
    Source s;
    IxScanline<Rgba> line(0, 11, {IxPaddingPolicy<Rgba>::NOOP, kValue});
    EXPECT_THROW(line.readFrom(s.guards, 0), ExAssertionFailed);
    line.rebuild(0, 10);
    EXPECT_THROW(line.readFrom(s.guards, 4), ExAssertionFailed);
    line.readFrom(s.guards, 3);
    EXPECT_THROW(line.rebuild(0, 12), ExAssertionFailed);

    // Two tiles with a gap between them: the gap is not read from anywhere.
    Vector<IxReadGuard> gapped;
    gapped.emplace_back(s.bytes);
    IxTile const far = makeTile(rgbaFloat(), {8, 10, 0, 4});
    {
        IxWriteGuard w(far);
        for (int x = 8; x < 10; ++x)
            *w.getPixel<Rgba>(x, 1) = Source::at(x, 1);
    }
    gapped.emplace_back(far);
    IxScanline<Rgba> edge(0, 12, {IxPaddingPolicy<Rgba>::EDGE, kValue});
    edge.readFrom(gapped, 1);
    EXPECT_EQ(edge[6], kValue);
    EXPECT_EQ(edge[7], kValue);
    EXPECT_EQ(edge[8], Source::at(8, 1));
    EXPECT_EQ(edge[11], Source::at(9, 1));
    IxScanline<Rgba> strict(0, 10, {IxPaddingPolicy<Rgba>::NOOP, kValue});
    EXPECT_THROW(strict.readFrom(gapped, 1), ExAssertionFailed);

    // Nothing to read from: all value.
    IxScanline<Rgba> none(0, 3, {IxPaddingPolicy<Rgba>::MIRROR, kValue});
    none.readFrom(Vector<IxReadGuard>(), 0);
    EXPECT_EQ(none[2], kValue);
}

TEST_F(IxScanlineRead, WritesConvertAndClipToTheTile) {
    IxTile const target =
        makeTile(IxPixelFormat(IxPixelFormat::RGB, IxPixelFormat::UINT8), {2, 6, 0, 2});
    IxWriteGuard w(target);
    std::memset(w.getAddress(2, 1), 0, 12);
    IxScanline<Rgba> line(0, 8, {});
    for (int x = 0; x < 8; ++x)
        line[x] = Rgba{float(x) / 8.0f, 1.0f, -1.0f, 0.5f};
    line.writeTo(w, 1);
    line.writeTo(w, 2); // outside the tile: nothing
    for (int x = 2; x < 6; ++x) {
        std::byte const* p = w.getAddress(x, 1);
        EXPECT_EQ(std::to_integer<int>(p[0]), int(float(x) / 8.0f * 255.0f + 0.5f));
        EXPECT_EQ(std::to_integer<int>(p[1]), 255);
        EXPECT_EQ(std::to_integer<int>(p[2]), 0);
    }

    // A line placed over a row of a tile of its own format writes in place.
    IxTile const alpha = makeTile(IxScanline<float>::PIXEL_FORMAT, {0, 4, 0, 3});
    IxWriteGuard a(alpha);
    IxScanline<float> over(a, 2, 1, 4, {});
    over[3] = 5.0f;
    EXPECT_EQ(*a.getPixel<float>(3, 2), 5.0f);
    EXPECT_THROW(IxScanline<float>(a, 2, 1, 5, {}), ExAssertionFailed);
    EXPECT_THROW(IxScanline<Rgba>(a, 2, 1, 3, {}), ExAssertionFailed);

    IxTile const complex = makeTile(IxScanline<std::complex<float>>::PIXEL_FORMAT, {0, 2, 0, 1});
    IxWriteGuard c(complex);
    IxScanline<std::complex<float>> cl(0, 2, {});
    cl[1] = {1.0f, -2.0f};
    cl.writeTo(c, 0);
    IxScanline<std::complex<float>> back(0, 2, {});
    back.readFrom(IxReadGuard(complex), 0);
    EXPECT_EQ(back[1], std::complex<float>(1.0f, -2.0f));
}
