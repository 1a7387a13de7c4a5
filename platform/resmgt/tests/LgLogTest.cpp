#include "LgLog.h"
#include "EnvIntVar.h"

#include <gtest/gtest.h>

#include <mutex>

using namespace Vn;

namespace {
// Collects what reaches the output for the life of the object.
class Capture {
public:
    Capture() {
        _previous = LgLog::setOutput([this](LgEntry const& e) {
            std::lock_guard g(_lock);
            _entries.push_back(e);
        });
    }
    ~Capture() { LgLog::setOutput(std::move(_previous)); }
    std::vector<LgEntry> entries() {
        std::lock_guard g(_lock);
        return _entries;
    }

private:
    std::mutex _lock;
    std::vector<LgEntry> _entries;
    LgLog::Output _previous;
};
} // namespace

TEST(LgMinorGroup, LevelNIsBit0x200ShiftedRightByN) {
    LgMinorGroup g(LgMajorGroup::getInstanceForName("Test"), "Levels");
    EXPECT_EQ(g.getLevels(), 0x380u);
    EXPECT_TRUE(g.isOn(0));
    EXPECT_TRUE(g.isOn(2));
    EXPECT_FALSE(g.isOn(3));
    g.setLevels(0x200 >> 5);
    for (int n = 0; n <= 9; ++n)
        EXPECT_EQ(g.isOn(n), n == 5) << n;
    EXPECT_FALSE(g.isOn(-1));
    EXPECT_FALSE(g.isOn(10));
    EXPECT_EQ(&LgMajorGroup::getInstanceForName("Test"), &g.getMajor());
}

TEST(LgLog, StatementsGoThroughQueueOrOutputAndOnlyWhenOn) {
    LgMinorGroup g(LgMajorGroup::getInstanceForName("Pp"), "Unit");
    Capture cap;
    int built = 0;
    auto text = [&] {
        ++built;
        return "value " + std::to_string(built);
    };
    VN_LOG(g, 1, text());
    VN_LOG(g, 7, text()); // off: the text is never built
    EXPECT_EQ(built, 1);
    auto direct = cap.entries();
    ASSERT_EQ(direct.size(), 1u);
    EXPECT_EQ(direct[0].format(), "Pp.Unit[1]: value 1");

    // With the logger running the statement only queues; stopping drains the queue.
    LgLog::startLogger();
    ASSERT_NE(LgLog::getQueue(), nullptr);
    for (int i = 0; i < 50; ++i)
        VN_LOG(g, 0, "queued " << i);
    LgLog::stopLogger();
    EXPECT_EQ(LgLog::getQueue(), nullptr);
    auto all = cap.entries();
    ASSERT_EQ(all.size(), 51u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(all[static_cast<std::size_t>(i) + 1].text, "queued " + std::to_string(i));
}

TEST(EnvIntVar, ParsesWholeNumbersWithinBoundsOnly) {
    std::string why;
    EXPECT_EQ(EnvIntVar::parse("8", 9, 5, 12, &why), 8);
    EXPECT_TRUE(why.empty());
    EXPECT_EQ(EnvIntVar::parse(" -3 ", 1, -5, 5, &why), -3);
    EXPECT_EQ(EnvIntVar::parse("eight", 9, 5, 12, &why), 9);
    EXPECT_EQ(why, "not a whole number");
    EXPECT_EQ(EnvIntVar::parse("8x", 9, 5, 12, &why), 9);
    EXPECT_EQ(EnvIntVar::parse("40", 9, 5, 12, &why), 9);
    EXPECT_EQ(why, "out of range");
    EXPECT_EQ(EnvIntVar::parse("99999999999999999999", 7, INT_MIN, INT_MAX, &why), 7);
    EXPECT_EQ(why, "out of range");
    EXPECT_EQ(EnvIntVar::parse("", 4, 0, 10, &why), 4);
}

TEST(EnvIntVar, ReadsTheEnvironmentOnceAndLogsABadValue) {
    Capture cap;
    ::setenv("VN_TEST_ENVINTVAR", "12", 1);
    EnvIntVar good(__FILE__, "VN_TEST_ENVINTVAR", 3);
    ::setenv("VN_TEST_ENVINTVAR", "13", 1);
    EXPECT_EQ(good.getValue(), 12); // read at construction, not later
    EXPECT_TRUE(good.isSet());

    ::setenv("VN_TEST_ENVINTVAR", "lots", 1);
    EnvIntVar bad(__FILE__, "VN_TEST_ENVINTVAR", 3);
    EXPECT_EQ(bad.getValue(), 3);
    EXPECT_FALSE(bad.isSet());
    auto entries = cap.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_NE(entries[0].text.find("VN_TEST_ENVINTVAR='lots'"), std::string::npos);

    ::unsetenv("VN_TEST_ENVINTVAR");
    EnvIntVar unset(__FILE__, "VN_TEST_ENVINTVAR", -1);
    EXPECT_EQ(unset.getValue(), -1);
    EXPECT_EQ(cap.entries().size(), 1u);
}
