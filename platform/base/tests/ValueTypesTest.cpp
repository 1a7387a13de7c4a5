#include "CoRgbaColor.h"
#include "DtTime.h"
#include "ExBase.h"
#include "GeRectangle.h"
#include "Rational.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace Vn;

TEST(Rational, ReducesAndComparesExactly) {
    EXPECT_EQ(Rational(30000, -1001 * 2), Rational(-15000, 1001));
    EXPECT_EQ(Rational(6, 4).toString(), "3/2");
    EXPECT_EQ(Rational(1, 3) + Rational(1, 6), Rational(1, 2));
    EXPECT_EQ(Rational(2, 3) * Rational(3, 4), Rational(1, 2));
    EXPECT_EQ(Rational(1, 2) / Rational(1, 4), Rational(2));
    EXPECT_TRUE(Rational(1, 3) < Rational(1, 2));
    EXPECT_TRUE(Rational(-1, 2) < Rational(1, 3));
    // Cross products that overflow 64 bits still compare right.
    Rational big(INT64_MAX - 1, INT64_MAX);
    EXPECT_TRUE(big < Rational(1));
    EXPECT_THROW(Rational(1, 0), ExAssertionFailed);
    EXPECT_THROW(Rational(1) / Rational(0), ExAssertionFailed);
    EXPECT_THROW(Rational(INT64_MAX) + Rational(1), ExAssertionFailed);
}

TEST(GeRectangle, MaximaAreExclusive) {
    GeRectangle<int> r(0, 4, 0, 2);
    EXPECT_EQ(r.width(), 4);
    EXPECT_TRUE(r.contains(3, 1));
    EXPECT_FALSE(r.contains(4, 1));
    EXPECT_FALSE(r.contains(0, 2));
    // Touching rectangles do not overlap.
    EXPECT_TRUE(r.intersect(GeRectangle<int>(4, 8, 0, 2)).isEmpty());
    EXPECT_EQ(r.intersect(GeRectangle<int>(2, 8, 1, 5)), GeRectangle<int>(2, 4, 1, 2));
    EXPECT_TRUE(GeRectangle<int>(3, 3, 0, 5).isEmpty());
    EXPECT_EQ(GeRectangle<int>(5, 1, 0, 1), GeRectangle<int>());
    // An empty side adds nothing to a union, wherever it lies.
    EXPECT_EQ(r.unite(GeRectangle<int>(100, 90, 0, 1)), r);
    EXPECT_EQ(r.unite(GeRectangle<int>(6, 7, -1, 0)), GeRectangle<int>(0, 7, -1, 2));
    GeRectangle<float> f(0.5f, 1.0f, 0.0f, 1.0f);
    EXPECT_FALSE(f.contains(1.0f, 0.5f));
}

TEST(DtTime, FormatsInUtc) {
    EXPECT_EQ(DtTime(0).toString(), "1970-01-01 00:00:00");
    EXPECT_EQ(DtTime(int64_t(1700000000) * 1000000 + 999999).toString(), "2023-11-14 22:13:20");
    DtTime a = DtTime::now();
    EXPECT_GE(DtTime::now().secondsSince(a), 0.0);
    CoRgbaColorTyped<float> c{1, 0.5f, 0, 1};
    EXPECT_EQ(c, (CoRgbaColorTyped<float>{1, 0.5f, 0, 1}));
}
