#include "TmTimeCurve.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <vector>

using namespace Vn;

namespace {
std::vector<double> timesOf(TmTimeCurve const& c) {
    std::vector<double> t;
    for (auto const& k : c.getKeyframes())
        t.push_back(k->getTime());
    return t;
}
} // namespace

TEST(TmTimeCurve, KeepsKeysSortedAndFindsThem) {
    auto c = TmTimeCurve::create();
    for (double t : {3.0, -5.0, 1.0, 2.5, 0.0})
        EXPECT_TRUE(c->insert(TmKeyframe::create(t, t * 10)).isNull());
    EXPECT_EQ(timesOf(*c), (std::vector<double>{-5, 0, 1, 2.5, 3}));
    EXPECT_EQ(c->find(2.5)->getValue(), 25);
    EXPECT_TRUE(c->find(2.4).isNull());
    EXPECT_EQ(c->findAtOrBefore(2.4)->getTime(), 1);
    EXPECT_EQ(c->findAtOrBefore(1)->getTime(), 1);
    EXPECT_TRUE(c->findAtOrBefore(-5.5).isNull());
    EXPECT_EQ(c->findAfter(1)->getTime(), 2.5);
    EXPECT_TRUE(c->findAfter(3).isNull());
    double const nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(c->find(nan).isNull());
    EXPECT_TRUE(c->findAtOrBefore(nan).isNull());
    EXPECT_TRUE(c->findAfter(nan).isNull());
}

// Keying a time twice keeps the last key; removal is by the key itself or by exact time.
TEST(TmTimeCurve, OneKeyPerTime) {
    auto c = TmTimeCurve::create();
    auto first = TmKeyframe::create(1, 10);
    auto second = TmKeyframe::create(1, 20);
    c->insert(TmKeyframe::create(0, 0));
    c->insert(first);
    EXPECT_EQ(c->insert(second).get(), first.get());
    EXPECT_EQ(c->getSize(), 2);
    EXPECT_EQ(c->find(1).get(), second.get());
    EXPECT_FALSE(c->contains(first));
    EXPECT_TRUE(c->contains(second));

    // A key of the same time and value that the curve does not hold is not removed.
    EXPECT_FALSE(c->remove(TmKeyframe::create(1, 20)));
    EXPECT_FALSE(c->remove(first));
    EXPECT_FALSE(c->remove(nullptr));
    EXPECT_TRUE(c->remove(second));
    EXPECT_EQ(timesOf(*c), std::vector<double>{0});
    EXPECT_TRUE(c->removeAt(5).isNull());
    EXPECT_EQ(c->removeAt(0)->getValue(), 0);
    EXPECT_TRUE(c->isEmpty());
}

TEST(TmTimeCurve, RefusesKeysThatAreNotNumbers) {
    double const inf = std::numeric_limits<double>::infinity();
    double const nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(TmKeyframe::create(nan, 0), ExBase);
    EXPECT_THROW(TmKeyframe::create(inf, 0), ExBase);
    EXPECT_THROW(TmKeyframe::create(0, -inf), ExBase);
    auto k = TmKeyframe::create(0, 1);
    try {
        k->setValue(nan);
        FAIL();
    } catch (ExBase const& e) {
        EXPECT_NE(e.getReason().find("value must be finite"), std::string::npos) << e.getReason();
    }
    EXPECT_EQ(k->getValue(), 1);
    auto c = TmTimeCurve::create();
    EXPECT_THROW(c->insert(nullptr), ExNullPtr);
    EXPECT_TRUE(c->isEmpty());
}

// Random inserts and removals agree with an ordered map of time to key.
TEST(TmTimeCurve, AgreesWithAMapUnderRandomEdits) {
    std::mt19937 rng(7);
    auto c = TmTimeCurve::create();
    std::map<double, TmKeyframe*> model;
    for (int step = 0; step < 4000; ++step) {
        double const t = static_cast<double>(rng() % 64) / 4.0 - 4.0;
        switch (rng() % 3) {
        case 0: {
            auto k = TmKeyframe::create(t, step);
            auto replaced = c->insert(k);
            auto it = model.find(t);
            EXPECT_EQ(replaced.get(), it == model.end() ? nullptr : it->second);
            model[t] = k.get();
            break;
        }
        case 1: {
            auto removed = c->removeAt(t);
            auto it = model.find(t);
            EXPECT_EQ(removed.get(), it == model.end() ? nullptr : it->second);
            if (it != model.end())
                model.erase(it);
            break;
        }
        default: {
            auto below = c->findAtOrBefore(t);
            auto it = model.upper_bound(t);
            EXPECT_EQ(below.get(), it == model.begin() ? nullptr : std::prev(it)->second);
            auto above = c->findAfter(t);
            EXPECT_EQ(above.get(), it == model.end() ? nullptr : it->second);
        }
        }
        ASSERT_EQ(c->getSize(), static_cast<int>(model.size()));
    }
    std::vector<double> times;
    for (auto const& [t, k] : model)
        times.push_back(t);
    EXPECT_EQ(timesOf(*c), times);
}
