#include "RCBase.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <stdexcept>

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

template <class T>
void expectLastReleaseDeletes(bool adoptNew) {
    SCOPED_TRACE(adoptNew ? "adoptNew" : "constructor");
    int deaths = 0;
    {
        RCShdPtr<T> a =
            adoptNew ? RCShdPtr<T>::adoptNew(new T(&deaths)) : RCShdPtr<T>(new T(&deaths));
        EXPECT_EQ(a->getRefCount(), 1);
        RCShdPtr<T> b = a;
        EXPECT_EQ(a->getRefCount(), 2);
        a.reset();
        EXPECT_EQ(deaths, 0);
        EXPECT_EQ(b->getRefCount(), 1);
        RCShdPtr<T> c(std::move(b));
        EXPECT_TRUE(b.isNull());
        EXPECT_EQ(c->getRefCount(), 1);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(RCShdPtr, LastReleaseDeletesForBothCountKinds) {
    for (bool adoptNew : {false, true}) {
        expectLastReleaseDeletes<Counted>(adoptNew);
        expectLastReleaseDeletes<Plain>(adoptNew);
    }
    EXPECT_TRUE(RCShdPtr<Counted>::adoptNew(nullptr).isNull());
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

namespace {
struct Throwing : RCSWBase<LkCounter<int>> {
    explicit Throwing(bool fail) {
        if (fail)
            throw std::runtime_error("refused");
    }
};
// Made with a newly made object as its argument: the argument is made between this object's
// allocation and its construction.
struct Holder : RCSWBase<LkCounter<int>> {
    explicit Holder(Watched* w) : held(w) {}
    RCShdPtr<Watched> held;
};
} // namespace

TEST(RCWeakPtr, CountSharesTheObjectsBlockOnlyWhenMadeByNew) {
    int deaths = 0;
    Watched onStack(&deaths);
    EXPECT_FALSE(onStack.getCounter()->isInline());

    RCShdPtr<Holder> holder(new Holder(new Watched(&deaths)));
    EXPECT_FALSE(holder->getCounter()->isInline());
    EXPECT_TRUE(holder->held->getCounter()->isInline());

    // A constructor that throws frees its block; the next object does not take that count.
    EXPECT_THROW(RCShdPtr<Throwing>(new Throwing(true)), std::runtime_error);
    Watched afterThrow(&deaths);
    EXPECT_FALSE(afterThrow.getCounter()->isInline());

    RCWeakPtr<Throwing> weak;
    {
        RCShdPtr<Throwing> made(new Throwing(false));
        EXPECT_TRUE(made->getCounter()->isInline());
        weak = RCWeakPtr<Throwing>(made);
    }
    // The object is gone; its count, in the same block, still answers.
    EXPECT_TRUE(weak.isExpired());
    EXPECT_FALSE(weak.lock());
    holder.reset();
    EXPECT_EQ(deaths, 1);
}
