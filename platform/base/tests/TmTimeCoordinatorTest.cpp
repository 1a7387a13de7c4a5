#include "TmTimeCoordinator.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace Vn;

namespace {
// Records its hooks as "<name> <hook> <time seen by getTime()>".
struct Client : TmTimeClient {
    std::vector<std::string>* log;
    std::string name;
    int priority;
    std::function<void()> onTime;
    Client(std::vector<std::string>* l, std::string n, int p = 0)
        : log(l), name(std::move(n)), priority(p) {}
    int getClientPriority() const override { return priority; }
    void record(char const* hook) {
        log->push_back(name + " " + hook + " " + std::to_string(getTime().getMicroseconds()));
    }
    void timeUpdated() override {
        record("time");
        if (onTime)
            onTime();
    }
    void playInitiated() override { record("playInitiated"); }
    void play(TmIterator const&) override { record("play"); }
    void playTime(TmIterator const& it) override {
        EXPECT_EQ(it.getTime(), getTime());
        record("playTime");
    }
    void stop() override { record("stop"); }
    void coordinatorChanged() override { record("coordinator"); }
    void rangeUpdated() override { record("range"); }
    void marksUpdated() override { record("marks"); }
    void playingRateUpdated() override { record("rate"); }
    void targetRateUpdated() override { record("targetRate"); }
    void targetChanged() override { record("target"); }
};

void follow(TmTimeClient& c, TmTimeCoordinator& coordinator) {
    c.setMasterCoordinator(&coordinator);
    c.setStandalone(false);
}
} // namespace

TEST(TmTimeCoordinator, ClientsHearChangesInPriorityOrderAndOnlyRealOnes) {
    std::vector<std::string> log;
    TmTimeCoordinator co;
    Client low(&log, "low", 0), high(&log, "high", 5), low2(&log, "low2", 0);
    follow(low, co);
    follow(high, co);
    follow(low2, co);
    log.clear();

    co.setTime(DtTime(100));
    co.setTime(DtTime(100));
    EXPECT_EQ(log, (std::vector<std::string>{"high time 100", "low time 100", "low2 time 100"}));

    log.clear();
    co.setRange(DtTimeInterval(DtTime(0), DtTime(1000)));
    co.setRange(DtTimeInterval(DtTime(0), DtTime(1000)));
    co.setTarget("comp");
    co.setTargetRate(24.0);
    co.setPlayingRate(25.0);
    co.addMark(TmMark("in", DtTime(10)));
    EXPECT_FALSE(co.removeMark("out"));
    EXPECT_EQ(log.size(), 4u * 3u);
    EXPECT_EQ(log[3], "high target 100");
    EXPECT_EQ(log[6], "high rate 100");
    EXPECT_EQ(log[9], "high marks 100");
    EXPECT_THROW(co.setPlayingRate(0.0), ExAssertionFailed);

    auto marks = co.getMarks();
    ASSERT_EQ(marks.getCardinality(), 1);
    EXPECT_EQ(marks.item().getName(), "in");
}

TEST(TmTimeCoordinator, ClientsLeavingDuringARoundAreNotCalledAgain) {
    std::vector<std::string> log;
    TmTimeCoordinator co;
    Client a(&log, "a"), b(&log, "b"), c(&log, "c");
    follow(a, co);
    follow(b, co);
    follow(c, co);
    log.clear();
    a.onTime = [&] {
        b.setStandalone(true);
    };
    b.onTime = [&] {
        FAIL();
    };
    c.onTime = [&] {
        c.setMasterCoordinator(nullptr);
    };
    co.setTime(DtTime(7));
    EXPECT_EQ(log, (std::vector<std::string>{"a time 7", "c time 7", "c coordinator 7"}));
    EXPECT_EQ(co.getNbClients(), 1);
    // Standalone clients keep the time they had and move on their own.
    EXPECT_EQ(b.getTime(), DtTime(7));
    b.onTime = nullptr;
    b.setTime(DtTime(9));
    EXPECT_EQ(co.getTime(), DtTime(7));
    EXPECT_EQ(log.back(), "b time 9");
}

TEST(TmTimeCoordinator, PlaySteppingWrapsAtTheEndOfTheRange) {
    std::vector<std::string> log;
    TmTimeCoordinator co;
    co.setPlayingRate(4.0); // 250000 us a frame
    co.setRange(DtTimeInterval(DtTime(0), DtTime(500000)));
    Client a(&log, "a");
    follow(a, co);
    co.advance(); // not playing
    EXPECT_EQ(a.getNextPlayTime(), DtTime(250000));
    log.clear();
    co.play();
    co.play();
    co.advance();
    co.advance();
    co.stop();
    co.stop();
    EXPECT_EQ(log,
              (std::vector<std::string>{"a play 0", "a playInitiated 0", "a playTime 250000",
                                        "a time 250000", "a playTime 0", "a time 0", "a stop 0"}));
}

TEST(TmTimeCoordinator, ADeadCoordinatorLetsItsClientsGo) {
    std::vector<std::string> log;
    Client a(&log, "a");
    {
        TmTimeCoordinator co;
        co.setTime(DtTime(3));
        follow(a, co);
        EXPECT_TRUE(a.isFollowing());
    }
    EXPECT_EQ(a.getMasterCoordinator(), nullptr);
    EXPECT_EQ(log.back(), "a coordinator 3");
    EXPECT_EQ(&TmTimeCoordinator::getMaster(), &TmTimeCoordinator::getMaster());
}
