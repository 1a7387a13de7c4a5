#include "RCBase.h"
#include "ExBase.h"

#include <gtest/gtest.h>

using namespace Vn;

namespace {
struct Counted : RCBase<LkCounter<int>> {
    explicit Counted(int* deaths) : _deaths(deaths) {}
    ~Counted() override { ++*_deaths; }
    int* _deaths;
};
struct Plain : RCBase<int> {
    explicit Plain(int* deaths) : _deaths(deaths) {}
    ~Plain() override { ++*_deaths; }
    int* _deaths;
};
struct Watched : RCSWBase<LkCounter<int>> {
    explicit Watched(int* deaths) : _deaths(deaths) {}
    ~Watched() override { ++*_deaths; }
    int value = 5;
    int* _deaths;
};
struct Derived : Counted {
    using Counted::Counted;
};
} // namespace

TEST(RCShdPtr, LastReleaseDeletesForBothCountKinds) {
    int deaths = 0;
    {
        RCShdPtr<Counted> a(new Counted(&deaths));
        RCShdPtr<Counted> b = a;
        EXPECT_EQ(a->getRefCount(), 2);
        a.reset();
        EXPECT_EQ(deaths, 0);
        EXPECT_EQ(b->getRefCount(), 1);
    }
    EXPECT_EQ(deaths, 1);
    {
        RCShdPtr<Plain> p(new Plain(&deaths));
        RCShdPtr<Plain> q(std::move(p));
        EXPECT_TRUE(p.isNull());
        EXPECT_EQ(q->getRefCount(), 1);
    }
    EXPECT_EQ(deaths, 2);
}

TEST(RCShdPtr, NullAndFailedCastRaise) {
    int deaths = 0;
    RCShdPtr<Counted> none;
    EXPECT_THROW(none->getRefCount(), ExNullPtr);
    RCShdPtr<Counted> base(new Counted(&deaths));
    EXPECT_THROW(rcCast<Derived>(base), ExCastFailed);
    RCShdPtr<Counted> derived(new Derived(&deaths));
    EXPECT_EQ(rcCast<Derived>(derived).get(), derived.get());
}

TEST(RCWeakPtr, LocksWhileAliveAndNeverAfter) {
    int deaths = 0;
    RCWeakPtr<Watched> weak;
    RCSWCount* counter = nullptr;
    {
        RCShdPtr<Watched> strong(new Watched(&deaths));
        weak = RCWeakPtr<Watched>(strong);
        counter = strong->getCounter();
        EXPECT_EQ(counter->getWeakCount(), 2); // the object's own and ours
        RCShdPtr<Watched> again = weak.lock();
        ASSERT_TRUE(again);
        EXPECT_EQ(again->value, 5);
        EXPECT_EQ(strong->getRefCount(), 2);
    }
    EXPECT_EQ(deaths, 1);
    EXPECT_TRUE(weak.isExpired());
    EXPECT_FALSE(weak.lock());
    // The counter outlives the object while a weak pointer holds it.
    EXPECT_EQ(counter->getWeakCount(), 1);
    EXPECT_EQ(counter->getStrongCount(), 0);
}
