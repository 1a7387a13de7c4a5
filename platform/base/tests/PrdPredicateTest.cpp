#include "PrdPredicate.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <string>

using namespace Vn;

namespace {
PrdPredicate<int> even() {
    return PrdPredicate<int>::fromFunction([](int v) { return v % 2 == 0; });
}
PrdPredicate<int> positive() {
    return PrdPredicate<int>::fromFunction([](int v) { return v > 0; });
}
} // namespace

TEST(PrdPredicate, CombinationsFollowLogic) {
    auto const evenPositive = even() && positive();
    auto const evenOrPositive = even() | positive();
    auto const odd = !even();
    for (int v = -4; v <= 4; ++v) {
        SCOPED_TRACE(v);
        bool const e = v % 2 == 0, p = v > 0;
        EXPECT_EQ(evenPositive(v), e && p);
        EXPECT_EQ((even() & positive())(v), e && p);
        EXPECT_EQ(evenOrPositive(v), e || p);
        EXPECT_EQ((even() || positive())(v), e || p);
        EXPECT_EQ(odd.evaluate(v), !e);
        EXPECT_TRUE(PrdPredicate<int>::all()(v));
        EXPECT_FALSE(PrdPredicate<int>::none()(v));
        EXPECT_EQ((PrdPredicate<int>::all() && !odd)(v), e);
    }
}

TEST(PrdPredicate, CombinedPredicatesStopAtTheFirstDecidingSide) {
    int rightCalls = 0;
    auto counted = PrdPredicate<std::string>::fromFunction([&](std::string const&) {
        ++rightCalls;
        return true;
    });
    auto const isEmpty =
        PrdPredicate<std::string>::fromFunction([](std::string const& s) { return s.empty(); });

    EXPECT_FALSE((isEmpty && counted)("x"));
    EXPECT_EQ(rightCalls, 0);
    EXPECT_TRUE((isEmpty || counted)(""));
    EXPECT_EQ(rightCalls, 0);
    EXPECT_TRUE((isEmpty || counted)("x"));
    EXPECT_EQ(rightCalls, 1);
}

TEST(PrdPredicate, CopiesShareTheTestAndNullRaises) {
    auto a = even();
    auto b = a;
    EXPECT_EQ(a.getImp().get(), b.getImp().get());
    EXPECT_EQ(a.getImp()->getRefCount(), 2);

    PrdPredicate<int> null;
    EXPECT_TRUE(null.isNull());
    EXPECT_THROW(null(1), ExNullPtr);
    EXPECT_THROW((even() && null)(2), ExNullPtr);
    // The null side is not reached when the other decides.
    EXPECT_FALSE((even() && null)(3));
}
