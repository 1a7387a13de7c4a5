#include "ExBase.h"
#include "ImageTestSupport.h"
#include "IxRollingScanlineBuffer.h"
#include "IxScanline.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Vn;
using namespace VnTest;

namespace {

float valueAt(int x, int y) {
    return static_cast<float>(y * 1000 + x);
}

template <class T>
T make(float v);
template <>
float make<float>(float v) {
    return v;
}
template <>
CoRgbaColorTyped<float> make<CoRgbaColorTyped<float>>(float v) {
    return {v, -v, 0.5f, 1.0f};
}

float first(float v) {
    return v;
}
float first(CoRgbaColorTyped<float> const& v) {
    return v.r;
}

// Rows [0, 10) and [10, 20) of x [0, 7) in two tiles, one above the other.
template <class T>
struct Stacked {
    IxTile top = makeTile(IxScanline<T>::PIXEL_FORMAT, {0, 7, 0, 10});
    IxTile bottom = makeTile(IxScanline<T>::PIXEL_FORMAT, {0, 7, 10, 20});
    Vector<IxReadGuard> guards;
    Stacked() {
        for (IxTile const& t : {top, bottom}) {
            IxWriteGuard w(t);
            GeRectangle<int> const& r = t.getPixelRegion();
            for (int y = r.ymin; y < r.ymax; ++y)
                for (int x = r.xmin; x < r.xmax; ++x)
                    *w.getPixel<T>(x, y) = make<T>(valueAt(x, y));
            guards.emplace_back(t);
        }
    }
};

// Doubles the first component, and notes each row it sees.
template <class T>
class Doubler : public IxRollingScanlineBuffer<T>::Functor {
public:
    void operator()(IxScanline<T>& dst, IxScanline<T> const& src) override {
        _rows.push_back(static_cast<int>(first(src[src.getX0()])) / 1000);
        for (int x = src.getX0(); x < src.getX1(); ++x)
            dst[x] = make<T>(2.0f * first(src[x]));
    }
    std::vector<int> _rows;
};

std::string assertionText(std::function<void()> const& f) {
    try {
        f();
    } catch (ExAssertionFailed const& e) {
        return e.getReason();
    }
    return "(no assertion)";
}

} // namespace

template <class T>
class RollingScanlineBuffer : public ImageTest {};

using RollingTypes = ::testing::Types<float, CoRgbaColorTyped<float>>;
TYPED_TEST_SUITE(RollingScanlineBuffer, RollingTypes);

TYPED_TEST(RollingScanlineBuffer, LineJHoldsRowY0PlusKPlusJ) {
    using T = TypeParam;
    Stacked<T> s;
    IxPaddingPolicy<T> const padding(IxPaddingPolicy<T>::EDGE, make<T>(-1.0f));
    for (int n : {1, 2, 4, 15}) {
        // Wider than the tiles: the edge columns repeat.
        IxRollingScanlineBuffer<T> rolling(s.guards, {-2, 9, 3, 18}, n, padding);
        for (int k = 0; k <= 15 - n; ++k) {
            IxScanline<T> const* const* lines = rolling.getNext();
            for (int j = 0; j < n; ++j) {
                ASSERT_EQ(lines[j]->getX0(), -2);
                ASSERT_EQ(lines[j]->getX1(), 9);
                for (int x = -2; x < 9; ++x)
                    ASSERT_EQ(first((*lines[j])[x]), valueAt(std::clamp(x, 0, 6), 3 + k + j))
                        << "n " << n << " k " << k << " j " << j << " x " << x;
            }
        }
        EXPECT_EQ(assertionText([&] { rolling.getNext(); }),
                  "!_scanlinePool.isNull() && !_rollingBuffer.isNull() && "
                  "_srcRegion.getSlab( 1 ).contains( _currentY )");
    }
}

TYPED_TEST(RollingScanlineBuffer, EachRowIsReadAndConvertedOnce) {
    using T = TypeParam;
    Stacked<T> s;
    Doubler<T> doubler;
    int const n = 5;
    IxRollingScanlineBuffer<T> rolling(s.guards, {0, 7, 0, 20}, n,
                                       IxPaddingPolicy<T>(IxPaddingPolicy<T>::NOOP, T{}), &doubler);
    std::vector<int> expectedRows;
    for (int y = 0; y < n - 1; ++y)
        expectedRows.push_back(y);
    EXPECT_EQ(doubler._rows, expectedRows);
    for (int k = 0; k <= 20 - n; ++k) {
        IxScanline<T> const* const* lines = rolling.getNext();
        expectedRows.push_back(k + n - 1);
        ASSERT_EQ(doubler._rows, expectedRows);
        for (int j = 0; j < n; ++j)
            for (int x = 0; x < 7; ++x)
                ASSERT_EQ(first((*lines[j])[x]), 2.0f * valueAt(x, k + j));
    }
}

TYPED_TEST(RollingScanlineBuffer, RefusesAWindowThatDoesNotFit) {
    using T = TypeParam;
    Stacked<T> s;
    IxPaddingPolicy<T> const padding;
    std::string const text = "0 < _nbScanlines && _nbScanlines <= _srcRegion.getHeight()";
    for (int n : {0, -1, 6})
        EXPECT_EQ(assertionText([&] {
                      IxRollingScanlineBuffer<T>(s.guards, {0, 7, 2, 7}, n, padding);
                  }),
                  text)
            << n;
    // A window of the whole height gives exactly one step.
    IxRollingScanlineBuffer<T> whole(s.guards, {0, 7, 2, 7}, 5, padding);
    IxScanline<T> const* const* lines = whole.getNext();
    EXPECT_EQ(first((*lines[4])[3]), valueAt(3, 6));
    EXPECT_THROW(whole.getNext(), ExAssertionFailed);
}
