#include "GeCurve.h"
#include "ExBase.h"
#include "PmShape2d.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

using namespace Vn;

namespace {
std::string reasonOf(Vector<GePoint<float>> keys) {
    try {
        GeCurve c(std::move(keys));
    } catch (ExBase const& e) {
        return e.getReason();
    }
    return "accepted";
}
} // namespace

TEST(GeCurve, StraightBetweenKeysAndLevelBeyond) {
    GeCurve const c({{0.0f, 1.0f}, {2.0f, 5.0f}, {3.0f, 2.0f}});
    EXPECT_FLOAT_EQ(c.evaluate(0.0f), 1.0f);
    EXPECT_FLOAT_EQ(c.evaluate(0.5f), 2.0f);
    EXPECT_FLOAT_EQ(c.evaluate(2.0f), 5.0f);
    EXPECT_FLOAT_EQ(c.evaluate(2.75f), 2.75f);
    EXPECT_FLOAT_EQ(c.evaluate(-10.0f), 1.0f);
    EXPECT_FLOAT_EQ(c.evaluate(10.0f), 2.0f);
    EXPECT_FLOAT_EQ(GeCurve({{4.0f, 7.0f}}).evaluate(-1.0f), 7.0f);

    EXPECT_EQ(reasonOf({}), "A curve needs at least one key");
    EXPECT_EQ(reasonOf({{0.0f, 0.0f}, {0.0f, 1.0f}}),
              "Curve keys must have increasing x: key 1 does not follow key 0");
    EXPECT_EQ(reasonOf({{0.0f, 0.0f}, {1.0f, std::nanf("")}}), "Curve key 1 is not finite");
}

TEST(PmShape2d, SegmentsClosureAndCopyOnWrite) {
    Vector<GePoint<float>> const square{{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    EXPECT_EQ(PmShape2d(square, false).getNbSegments(), 3);
    EXPECT_EQ(PmShape2d(square, true).getNbSegments(), 4);
    EXPECT_EQ(PmShape2d({{2, 2}}, true).getNbSegments(), 0);

    RCPvtEngPtr<PmShape2d> const shared(new PmShape2d(square, true));
    RCPvtEngPtr<PmShape2d> const mine = shared->clone();
    mine->setCtrlPoint(2, {5, 5});
    EXPECT_EQ(shared->getCtrlPoint(2), (GePoint<float>{1, 1}));
    EXPECT_EQ(mine->getCtrlPoint(2), (GePoint<float>{5, 5}));
    EXPECT_TRUE(mine->getClosure());
    EXPECT_THROW(mine->getCtrlPoint(4), ExBase);
    EXPECT_THROW(mine->setCtrlPoint(4, {}), ExBase);
}
