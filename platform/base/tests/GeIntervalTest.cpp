#include "GeInterval.h"
#include "DtTimeInterval.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Vn;

TEST(GeInterval, IsHalfOpenAndComparesItsBounds) {
    GeInterval<int> const a(2, 5);
    EXPECT_FALSE(a.isEmpty());
    EXPECT_EQ(a.length(), 3);
    EXPECT_TRUE(a.contains(2));
    EXPECT_FALSE(a.contains(5));
    EXPECT_TRUE((GeInterval<int>(3, 3)).isEmpty());
    // Empty intervals with other bounds are other intervals.
    EXPECT_NE((GeInterval<int>(3, 3)), (GeInterval<int>(4, 1)));
    EXPECT_EQ(a.intersect(GeInterval<int>(4, 9)), (GeInterval<int>(4, 5)));
    EXPECT_TRUE(a.intersect(GeInterval<int>(5, 9)).isEmpty());

    std::ostringstream os;
    GeInterval<int>(-1, 7).dump(os);
    EXPECT_EQ(os.str(), "[ -1, 7 )");
}

TEST(DtTimeInterval, AllEmptySpansAreEqual) {
    DtTimeInterval const a(DtTime(10), DtTime(40));
    EXPECT_EQ(a.getDurationMicroseconds(), 30);
    EXPECT_TRUE(a.contains(DtTime(10)));
    EXPECT_FALSE(a.contains(DtTime(40)));
    EXPECT_TRUE((DtTimeInterval(DtTime(5), DtTime(5))).isEmpty());
    EXPECT_EQ((DtTimeInterval(DtTime(5), DtTime(5))), (DtTimeInterval(DtTime(9), DtTime(1))));
    EXPECT_NE(a, (DtTimeInterval(DtTime(10), DtTime(41))));
    EXPECT_EQ(a.intersect(DtTimeInterval(DtTime(30), DtTime(90))),
              (DtTimeInterval(DtTime(30), DtTime(40))));
    EXPECT_TRUE(a.intersect(DtTimeInterval(DtTime(40), DtTime(90))).isEmpty());

    std::ostringstream os;
    a.dump(os);
    EXPECT_EQ(os.str(), "[ 10, 40 ]");
}
