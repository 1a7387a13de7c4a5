#include "InPackageInit.h"
#include "IpFilters.h"
#include "PxEWAFilterShape.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

using namespace Vn;

namespace {
// A filter whose value is its argument, to read the table's distances back.
class Identity final : public IpFilters::Filter {
public:
    float evaluate(float x) const override { return x; }
    float getRadius() const override { return 2.5f; }
};
} // namespace

TEST(EWAFilterShape, EntriesHoldTheFilterAtTheRootOfTheirSquaredDistance) {
    auto const shape = std::make_unique<PxEWAFilterShape>(Identity(), -1.0f);
    EXPECT_EQ(shape->getRadius(), 2.5f);
    float const step = 2.5f * 2.5f / 4095.0f;
    for (int i : {0, 1, 2, 100, 2048, 4094, 4095})
        EXPECT_EQ((*shape)[i], static_cast<float>(std::sqrt(double(i) * double(step)))) << i;
    EXPECT_NEAR((*shape)[4095], 2.5f, 1e-6f);
    // A radius given overrides the filter's.
    auto const narrow = std::make_unique<PxEWAFilterShape>(Identity(), 1.0f);
    EXPECT_NEAR((*narrow)[4095], 1.0f, 1e-6f);
    EXPECT_NEAR((*narrow)[1024], std::sqrt(1024.0f / 4095.0f), 1e-6f);
}

TEST(EWAFilterShape, SharedShapesLiveWithTheProcessingPackage) {
    EXPECT_TRUE(PxEWAFilterShape::getGauss().isNull());
    InInitMgr::getInstance().initialize();
    auto const gauss = PxEWAFilterShape::getGauss();
    auto const jinc2 = PxEWAFilterShape::getJinc2();
    auto const jinc3 = PxEWAFilterShape::getJinc3();
    ASSERT_FALSE(gauss.isNull() || jinc2.isNull() || jinc3.isNull());
    EXPECT_EQ(gauss->getRadius(), IpFilters::Gaussian(0.5f).getRadius());
    EXPECT_NEAR(jinc2->getRadius(), 2.2331, 1e-4);
    EXPECT_NEAR(jinc3->getRadius(), 3.2383, 1e-4);
    for (auto const& s : {gauss, jinc2, jinc3}) {
        EXPECT_EQ((*s)[0], 1.0f);
        EXPECT_NEAR((*s)[4095], 0.0f, 1e-3f);
    }
    // Jinc tables have negative lobes, the Gaussian none.
    float minJinc = 1.0f, minGauss = 1.0f;
    for (int i = 0; i < PxEWAFilterShape::IDX_SIZE; ++i) {
        minJinc = std::min(minJinc, (*jinc3)[i]);
        minGauss = std::min(minGauss, (*gauss)[i]);
    }
    EXPECT_LT(minJinc, -0.01f);
    EXPECT_GE(minGauss, 0.0f);
    InInitMgr::getInstance().finalize();
    EXPECT_TRUE(PxEWAFilterShape::getJinc3().isNull());
}

TEST(IpFiltersRadial, GaussianAndJincKnownValues) {
    IpFilters::Gaussian const g(0.5f);
    EXPECT_EQ(g.evaluate(0.0f), 1.0f);
    EXPECT_NEAR(g.evaluate(0.5f), std::exp(-0.5f), 1e-7f);
    EXPECT_EQ(g.evaluate(-0.5f), g.evaluate(0.5f));
    EXPECT_EQ(g.evaluate(2.0f), 0.0f);
    // jinc's zeros are those of J1 over pi; its value at 0.5 is 2 J1(pi / 2) / (pi / 2).
    EXPECT_NEAR(IpFilters::Jinc::jinc(IpFilters::Jinc::zero(1)), 0.0, 1e-12);
    EXPECT_NEAR(IpFilters::Jinc::jinc(0.5), 2.0 * 0.5668240889058 / (3.141592653589793 / 2), 1e-9);
    IpFilters::Jinc2 const j2;
    EXPECT_EQ(j2.evaluate(0.0f), 1.0f);
    EXPECT_NEAR(j2.evaluate(float(IpFilters::Jinc::zero(1))), 0.0f, 1e-6f);
    EXPECT_EQ(j2.evaluate(2.3f), 0.0f);
    EXPECT_EQ(j2.evaluate(-1.7f), j2.evaluate(1.7f));
    EXPECT_LT(j2.evaluate(1.7f), 0.0f); // the second lobe is negative
}
