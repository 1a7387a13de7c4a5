#include "TmCurrentEditingTime.h"
#include "ExBase.h"
#include "InPackageInit.h"
#include "TmTimeCoordinator.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

using namespace Vn;

namespace {
// Records each time it is called with, and may act during the call.
struct TimeHandler final : CbHandler<DtTime const> {
    std::vector<std::int64_t> seen;
    std::function<void()> action;
    void execute(DtTime const& t) override {
        seen.push_back(t.getMicroseconds());
        if (action)
            action();
    }
};

struct PlayHandler final : CbHandler<CbEmptyType> {
    int calls = 0;
    void execute(CbEmptyType const&) override { ++calls; }
};

class EditingTime : public ::testing::Test {
protected:
    void SetUp() override {
        InInitMgr::getInstance().initialize();
        master().stop();
        master().setTime(DtTime(0));
    }
    void TearDown() override { InInitMgr::getInstance().finalize(); }
    static TmTimeCoordinator& master() { return TmTimeCoordinator::getMaster(); }
    static TmCurrentEditingTime const& editing() { return TmCurrentEditingTime::getInstance(); }
};
} // namespace

TEST_F(EditingTime, FollowsTheMasterAndPassesTheNewTimeOn) {
    ASSERT_TRUE(TmCurrentEditingTime::isInitialized());
    EXPECT_EQ(TmCurrentEditingTime::getInstance().getMasterCoordinator(), &master());
    EXPECT_TRUE(TmCurrentEditingTime::getInstance().isFollowing());

    master().setTime(DtTime(10)); // nobody listens yet
    TimeHandler h;
    editing().addTimeUpdatedCallback(&h);
    editing().addTimeUpdatedCallback(&h);
    editing().addTimeUpdatedCallback(nullptr);
    master().setTime(DtTime(40));
    master().setTime(DtTime(40));
    TmCurrentEditingTime::getInstance().setTime(DtTime(41));
    EXPECT_EQ(h.seen, (std::vector<std::int64_t>{40, 41}));

    editing().removeTimeUpdatedCallback(&h);
    editing().removeTimeUpdatedCallback(&h);
    editing().removeTimeUpdatedCallback(nullptr);
    master().setTime(DtTime(50));
    EXPECT_EQ(h.seen.size(), 2u);
}

TEST_F(EditingTime, HandlersMayUnsubscribeThemselvesOrOthersDuringACall) {
    TimeHandler first, second, third, late;
    first.action = [&] {
        editing().removeTimeUpdatedCallback(&second);
    };
    third.action = [&] {
        editing().removeTimeUpdatedCallback(&third);
        editing().addTimeUpdatedCallback(&late);
    };
    for (auto* h : {&first, &second, &third})
        editing().addTimeUpdatedCallback(h);

    master().setTime(DtTime(1));
    EXPECT_EQ(first.seen.size(), 1u);
    EXPECT_TRUE(second.seen.empty());
    EXPECT_EQ(third.seen.size(), 1u);
    EXPECT_TRUE(late.seen.empty());

    master().setTime(DtTime(2));
    EXPECT_EQ(first.seen, (std::vector<std::int64_t>{1, 2}));
    EXPECT_EQ(third.seen.size(), 1u);
    EXPECT_EQ(late.seen, std::vector<std::int64_t>{2});
}

TEST_F(EditingTime, PlayStartsAreDispatchedOnce) {
    PlayHandler p;
    editing().addPlayInitiatedCallback(&p);
    editing().addPlayInitiatedCallback(&p);
    master().play();
    master().play();
    master().stop();
    EXPECT_EQ(p.calls, 1);
    editing().removePlayInitiatedCallback(&p);
    master().play();
    EXPECT_EQ(p.calls, 1);
}

TEST_F(EditingTime, HandlersAndTheInstanceMayDieInEitherOrder) {
    auto early = std::make_unique<TimeHandler>();
    TimeHandler survivor;
    PlayHandler playSurvivor;
    editing().addTimeUpdatedCallback(early.get());
    editing().addTimeUpdatedCallback(&survivor);
    editing().addPlayInitiatedCallback(&playSurvivor);
    early.reset();
    master().setTime(DtTime(5));
    EXPECT_EQ(survivor.seen, std::vector<std::int64_t>{5});

    TmCurrentEditingTime::finalize();
    EXPECT_FALSE(TmCurrentEditingTime::isInitialized());
    // The master has no editing time to tell any more.
    master().setTime(DtTime(6));
    EXPECT_EQ(survivor.seen.size(), 1u);
    EXPECT_THROW(TmCurrentEditingTime::getInstance(), ExAssertionFailed);
    TmCurrentEditingTime::finalize();
    TmCurrentEditingTime::initialize();
    EXPECT_THROW(TmCurrentEditingTime::initialize(), ExAssertionFailed);
}
