#include "Cb.h"

#include <gtest/gtest.h>

#include <memory>

using namespace Vn;

namespace {
struct Recorder {
    std::vector<int> seen;
    void onValue(int const& v) { seen.push_back(v); }
};

// A handler that runs an action when called.
struct Action final : CbHandler<int> {
    std::function<void()> fn;
    int calls = 0;
    void execute(int const&) override {
        ++calls;
        if (fn)
            fn();
    }
};

void addTo(int const& v, int* sum) {
    *sum += v;
}
} // namespace

TEST(CbDispatcher, NullAndDuplicateSubscriptionsAreIgnored) {
    Recorder r;
    CbMethod<Recorder, int> h(&r, &Recorder::onValue);
    CbDispatcher<int> d;
    d.addHandler(nullptr);
    EXPECT_TRUE(d.isEmpty());
    d.addHandler(&h);
    d.addHandler(&h);
    d.call(3);
    EXPECT_EQ(r.seen, std::vector<int>{3});
    d.removeHandler(&h);
    d.removeHandler(&h);
    d.call(4);
    EXPECT_EQ(r.seen, std::vector<int>{3});

    int sum = 0;
    CbDataFunction<int, int*> f(&addTo, &sum);
    d.addHandler(&f);
    d.call(5);
    d.call(6);
    EXPECT_EQ(sum, 11);
}

TEST(CbDispatcher, HandlersRemovedDuringACallAreNotCalled) {
    CbDispatcher<int> d;
    Action first, second, third;
    first.fn = [&] {
        d.removeHandler(&second);
    };
    d.addHandler(&first);
    d.addHandler(&second);
    d.addHandler(&third);
    d.call(1);
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(third.calls, 1);

    // A handler added during a call waits for the next one.
    Action late;
    first.fn = [&] {
        d.addHandler(&late);
    };
    d.call(2);
    EXPECT_EQ(late.calls, 0);
    d.call(3);
    EXPECT_EQ(late.calls, 1);
}

TEST(CbDispatcher, EitherEndMayDieFirst) {
    auto d = std::make_unique<CbDispatcher<int>>();
    auto h = std::make_unique<Action>();
    Action other;
    d->addHandler(h.get());
    d->addHandler(&other);
    h.reset();
    EXPECT_EQ(d->size(), 1u);
    d->call(1);
    EXPECT_EQ(other.calls, 1);

    // A handler that outlives its dispatcher does not touch it again.
    d.reset();
    Action survivor;
    {
        CbDispatcher<int> shortLived;
        shortLived.addHandler(&survivor);
    }
    CbDispatcher<int> next;
    next.addHandler(&survivor);
    next.call(0);
    EXPECT_EQ(survivor.calls, 1);

    // A handler destroyed by an earlier handler during a call is skipped.
    CbDispatcher<int> d2;
    Action killer;
    auto victim = std::make_unique<Action>();
    killer.fn = [&] {
        victim.reset();
    };
    d2.addHandler(&killer);
    d2.addHandler(victim.get());
    d2.call(0);
    EXPECT_EQ(killer.calls, 1);
    EXPECT_TRUE(d2.size() == 1u);
}

// A handler may destroy the dispatcher calling it, in a nested call too: the calls in progress
// stop there and touch nothing of it.
TEST(CbDispatcher, AHandlerMayDestroyItsDispatcher) {
    for (bool nested : {false, true}) {
        SCOPED_TRACE(nested ? "nested" : "direct");
        auto d = std::make_unique<CbDispatcher<int>>();
        Action first, killer, after;
        bool reentered = false;
        first.fn = [&] {
            if (nested && !reentered) {
                reentered = true;
                d->call(2);
            }
        };
        killer.fn = [&] {
            d.reset();
        };
        d->addHandler(&first);
        d->addHandler(&killer);
        d->addHandler(&after);
        d->call(1);
        EXPECT_FALSE(d);
        EXPECT_EQ(killer.calls, 1);
        EXPECT_EQ(after.calls, 0);
        EXPECT_EQ(first.calls, nested ? 2 : 1);
    }
}
