#include "SnParts.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace Vn;

namespace {
using Ints = SnPartsBasic<int>;

RCShdPtr<Ints> ints(std::initializer_list<int> v) {
    return RCShdPtr<Ints>(new Ints(v));
}

template <class T>
std::string dumped(std::initializer_list<T> v) {
    std::ostringstream os;
    os << RCShdPtr<SnParts const>(new SnPartsBasic<T>(v));
    return os.str();
}
} // namespace

TEST(SnParts, PartsOfAnotherTypeNeverMix) {
    auto a = ints({1, 2});
    RCShdPtr<SnParts const> d(new SnPartsBasic<double>{1.0, 3.0});
    EXPECT_FALSE(a->unionWith(d));
    EXPECT_FALSE(a->differenceWith(d));
    EXPECT_FALSE(a->xorWith(d));
    a->replaceAllParts(d);
    EXPECT_FALSE(a->isEqual(d));
    EXPECT_FALSE(a->contains(d));
    EXPECT_EQ(a->getParts(), (std::vector<int>{1, 2}));
    EXPECT_FALSE(a->isEqual(nullptr));
}

TEST(SnParts, UnionDifferenceAndXorFollowRhsPartByPart) {
    auto a = ints({1, 2});
    EXPECT_TRUE(a->xorWith(ints({2, 3})));
    EXPECT_EQ(a->getParts(), (std::vector<int>{1, 3}));
    // A part held twice by rhs is added and taken away again, and still counts as a change.
    EXPECT_TRUE(a->xorWith(ints({5, 5})));
    EXPECT_EQ(a->getParts(), (std::vector<int>{1, 3}));
    EXPECT_FALSE(a->xorWith(ints({})));

    EXPECT_TRUE(a->unionWith(ints({3, 4, 0})));
    EXPECT_EQ(a->getParts(), (std::vector<int>{1, 3, 4, 0}));
    EXPECT_FALSE(a->unionWith(ints({0, 1})));

    auto dup = ints({7, 7, 8});
    EXPECT_TRUE(dup->differenceWith(ints({7})));
    EXPECT_EQ(dup->getParts(), (std::vector<int>{7, 8}));
    EXPECT_FALSE(dup->differenceWith(ints({9})));
    auto dup2 = ints({7, 7, 8});
    EXPECT_TRUE(dup2->differenceWith(ints({7, 7})));
    EXPECT_EQ(dup2->getParts(), (std::vector<int>{8}));

    dup2->append(8);
    dup2->append(1);
    dup2->remove(8);
    EXPECT_EQ(dup2->getParts(), (std::vector<int>{8, 1}));
    dup2->remove(42);
    EXPECT_TRUE(dup2->hasPart(1));
    EXPECT_FALSE(dup2->hasPart(42));
    dup2->replaceAllParts(ints({4, 5, 6}));
    EXPECT_EQ(dup2->getSize(), 3);
    dup2->clear();
    EXPECT_TRUE(dup2->isEmpty());
}

TEST(SnParts, EqualityKeepsOrderAndContainmentWantsAnUnbrokenRun) {
    EXPECT_FALSE(ints({1, 2})->isEqual(ints({2, 1})));
    EXPECT_TRUE(ints({1, 2})->isEqual(ints({1, 2})));
    EXPECT_FALSE(ints({1, 2})->isEqual(ints({1, 2, 2})));

    auto abc = ints({1, 2, 3});
    EXPECT_TRUE(abc->contains(ints({2, 3})));
    EXPECT_TRUE(abc->contains(ints({1, 2, 3})));
    EXPECT_FALSE(abc->contains(ints({1, 3})));
    EXPECT_FALSE(abc->contains(ints({3, 2})));
    EXPECT_FALSE(abc->contains(ints({1, 2, 3, 4})));
    EXPECT_TRUE(abc->contains(nullptr));
    // Empty parts lie in any parts but empty ones.
    EXPECT_TRUE(abc->contains(ints({})));
    EXPECT_FALSE(ints({})->contains(ints({})));
    EXPECT_TRUE(ints({})->contains(nullptr));
}

TEST(SnParts, EachPartTypeHasItsOwnExactEquality) {
    RCShdPtr<SnPartsBasic<double>> d(new SnPartsBasic<double>{0.1 + 0.2});
    EXPECT_FALSE(d->hasPart(0.3));
    EXPECT_TRUE(d->hasPart(0.1 + 0.2));

    using I = GeInterval<int>;
    SnPartsBasic<I> iv{I(3, 3)};
    EXPECT_FALSE(iv.hasPart(I(5, 1)));
    EXPECT_TRUE(iv.hasPart(I(3, 3)));

    using R = GeRectangle<int>;
    SnPartsBasic<R> rects{R(0, 0, 0, 0)};
    // Two empty rectangles are the same area but not the same part.
    EXPECT_FALSE(rects.hasPart(R(1, 1, 5, 9)));
    EXPECT_TRUE(rects.hasPart(R(0, 0, 0, 0)));

    SnPartsBasic<GePoint<int>> pts{GePoint<int>{1, 2}};
    EXPECT_TRUE(pts.hasPart(GePoint<int>{1, 2}));
    EXPECT_FALSE(pts.hasPart(GePoint<int>{2, 1}));

    // Empty time spans are all alike.
    SnPartsBasic<DtTimeInterval> spans{DtTimeInterval(DtTime(5), DtTime(5))};
    EXPECT_TRUE(spans.hasPart(DtTimeInterval(DtTime(9), DtTime(2))));
    EXPECT_FALSE(spans.hasPart(DtTimeInterval(DtTime(2), DtTime(9))));
    RCShdPtr<SnParts const> otherEmpty(
        new SnPartsBasic<DtTimeInterval>{DtTimeInterval(DtTime(7), DtTime(0))});
    EXPECT_TRUE(spans.isEqual(otherEmpty));
    EXPECT_FALSE(spans.unionWith(otherEmpty));
}

TEST(SnParts, DumpWritesEachPartAndABlank) {
    EXPECT_EQ(dumped<int>({1, -2}), "1 -2 ");
    EXPECT_EQ(dumped<double>({0.5}), "0.5 ");
    EXPECT_EQ(dumped<GeInterval<int>>({{1, 4}}), "[ 1, 4 ) ");
    EXPECT_EQ(dumped<GePoint<int>>({{3, 4}}), "( 3, 4 ) ");
    EXPECT_EQ(dumped<GeRectangle<int>>({{0, 10, 2, 8}}), "( 0, 10, 2, 8 ) ");
    EXPECT_EQ(dumped<DtTimeInterval>({{DtTime(1), DtTime(2)}}), "[ 1, 2 ] ");
    std::ostringstream os;
    os << RCShdPtr<SnParts const>();
    EXPECT_EQ(os.str(), "(none)");
}

TEST(SnParts, ACloneIsIndependent) {
    auto a = ints({1, 2});
    RCShdPtr<SnParts> c(a->clone());
    EXPECT_EQ(c->getRefCount(), 1);
    EXPECT_TRUE(c->isEqual(a));
    c->xorWith(ints({1}));
    EXPECT_EQ(a->getParts(), (std::vector<int>{1, 2}));
    Ints assigned;
    assigned = *a;
    EXPECT_TRUE(assigned.isEqual(a));
}

TEST(SnParts, MismatchExceptionKeepsItsClass) {
    SnParts::ExPartsMismatch const e("f.cpp", 3);
    EXPECT_EQ(e.getReason(), "Parts mismatch.");
    EXPECT_EQ(e.getLine(), 3);
    auto c = e.clone();
    EXPECT_THROW(c->raise(), SnParts::ExPartsMismatch);
}
