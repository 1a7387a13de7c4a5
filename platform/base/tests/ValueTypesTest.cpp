#include "CoRgbaColor.h"
#include "DtTime.h"
#include "DtTimeIndex.h"
#include "ExBase.h"
#include "GeRectangle.h"
#include "InBuildInfo.h"
#include "LiString.h"
#include "Rational.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <unordered_set>

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

// The system's text compares, orders, hashes and prints by its bytes, and is not a std::string.
TEST(LiString, IsTextOfItsOwnType) {
    LiString a("Blur"), b(std::string("Blur")), c("blur");
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c);
    EXPECT_LT(a, c);
    EXPECT_EQ(std::unordered_set<LiString>({a, b, c}).size(), 2u);
    std::ostringstream os;
    os << a + LiString(" (2)");
    EXPECT_EQ(os.str(), "Blur (2)");
    EXPECT_TRUE(LiString().isEmpty());
    EXPECT_EQ(LiString(std::string_view("ab\0c", 4)).size(), 4u);
    EXPECT_THROW(LiString(static_cast<char const*>(nullptr)), ExNullPtr);
    static_assert(!std::is_same_v<LiString, std::string>);
}

TEST(DtTimeIndex, IsAFrameAtARate) {
    EXPECT_DOUBLE_EQ(DtTimeIndex(48).toSeconds(Rational(24)), 2.0);
    EXPECT_DOUBLE_EQ(DtTimeIndex(30000).toSeconds(Rational(30000, 1001)), 1001.0);
    EXPECT_DOUBLE_EQ(DtTimeIndex(-12).toSeconds(Rational(25, 2)), -0.96);
    EXPECT_THROW(DtTimeIndex(1).toSeconds(Rational(0)), ExBase);
    EXPECT_THROW(DtTimeIndex(1).toSeconds(Rational(-24)), ExBase);
    EXPECT_LT(DtTimeIndex(-1), DtTimeIndex(0));
}

namespace {
class FixedInfo final : public InBuildInfo {
public:
    FixedInfo(std::string lib, std::string product)
        : _lib(std::move(lib)), _product(std::move(product)) {}
    std::string getProductName() const override { return _product; }
    std::string getLibraryName() const override { return _lib; }
    int getYear() const override { return 2024; }
    std::string getVersionText() const override { return "2.1"; }
    std::string getSuffix() const override { return ""; }
    int getMajorVersion() const override { return 2; }
    int getMinorVersion() const override { return 1; }
    int getReleaseStage() const override { return 0; }
    int getBuildNumber() const override { return 7; }
    std::string getBuildDate() const override { return "2024-01-02"; }
    std::string getBuildConfiguration() const override { return "Release"; }

private:
    std::string _lib, _product;
};
} // namespace

// The application's own build information stands apart from the libraries'; the build text
// lists every library registered, by name.
TEST(InBuildInfo, ApplicationAndBuildText) {
    EXPECT_EQ(InBuildInfoMgr::getAppInfo(), nullptr);
    InBuildInfoMgr::setAppInfo(OPtr<InBuildInfo>(new FixedInfo("app", "Compositor")));
    ASSERT_NE(InBuildInfoMgr::getAppInfo(), nullptr);
    EXPECT_EQ(InBuildInfoMgr::getAppInfo()->getProductName(), "Compositor");
    EXPECT_EQ(InBuildInfoUtil::findInfo("app"), nullptr);

    for (std::string const& name : InBuildInfoUtil::getLibraryNames())
        InBuildInfoUtil::unregisterInfo(name);
    EXPECT_EQ(InBuildInfo::getBuildInformationString(), "");
    InBuildInfoUtil::registerInfo(OPtr<InBuildInfo>(new FixedInfo("libZ", "P")));
    InBuildInfoUtil::registerInfo(OPtr<InBuildInfo>(new FixedInfo("libA", "P")));
    EXPECT_EQ(InBuildInfo::getBuildInformationString(),
              "libA 2.1 (P, build 7, 2024-01-02, Release); libZ 2.1 (P, build 7, 2024-01-02, "
              "Release)");
    InBuildInfoMgr::setAppInfo(nullptr);
    EXPECT_EQ(InBuildInfoMgr::getAppInfo(), nullptr);
    InBuildInfoUtil::unregisterInfo("libA");
    InBuildInfoUtil::unregisterInfo("libZ");
}
