#include "Trace.h"

#include <gtest/gtest.h>

using namespace Vn;

TEST(Trace, ScopesWriteIndentedLinesOnlyUpToTheLevel) {
    std::vector<std::string> lines;
    auto previous =
        TraceManager::getInstance().setOutput([&](std::string const& l) { lines.push_back(l); });
    Trace t("unit");
    EXPECT_FALSE(t.isEnabled(Trace::MainTraceLevel));
    { VN_TRACE_SCOPE(t, Trace::MainTraceLevel, "quiet"); }
    EXPECT_TRUE(lines.empty());

    t.setLevel(Trace::MainTraceLevel);
    {
        VN_TRACE_SCOPE(t, Trace::MainTraceLevel, "outer");
        t.log(Trace::MainTraceLevel, "inside");
        t.log(Trace::DetailTraceLevel, "too detailed");
    }
    TraceManager::getInstance().setOutput(std::move(previous));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].rfind("unit: > outer (platform/base/tests/TraceTest.cpp:", 0), 0u);
    EXPECT_EQ(lines[1], "  unit: inside");
    EXPECT_EQ(lines[2], "unit: < outer");
}
