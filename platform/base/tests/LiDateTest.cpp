#include "LiDate.h"

#include "ExBase.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Vn;

TEST(LiDate, WrittenAndReadAsIso8601) {
    struct {
        char const* text;
        std::int64_t seconds;
        std::int32_t nanoseconds;
        char const* written;
    } const cases[] = {
        {"1970-01-01T00:00:00Z", 0, 0, "1970-01-01T00:00:00Z"},
        {"2026-03-01T09:30:00Z", 1772357400, 0, "2026-03-01T09:30:00Z"},
        {"2024-02-29T23:59:59.5Z", 1709251199, 500000000, "2024-02-29T23:59:59.5Z"},
        {"2024-02-29T23:59:59.000000001Z", 1709251199, 1, "2024-02-29T23:59:59.000000001Z"},
        {"1969-12-31T23:59:59Z", -1, 0, "1969-12-31T23:59:59Z"},
        {"2026-03-01T10:30:00+01:00", 1772357400, 0, "2026-03-01T09:30:00Z"},
        {"2026-03-01T04:00:00-05:30", 1772357400, 0, "2026-03-01T09:30:00Z"},
    };
    for (auto const& c : cases) {
        LiDate const d = LiDate::fromIso8601(c.text);
        EXPECT_EQ(d.getSeconds(), c.seconds) << c.text;
        EXPECT_EQ(d.getNanoseconds(), c.nanoseconds) << c.text;
        EXPECT_EQ(d.toIso8601(), c.written) << c.text;
        EXPECT_EQ(LiDate::fromIso8601(d.toIso8601()), d) << c.text;
    }
    std::ostringstream os;
    os << LiDate(0, -1);
    EXPECT_EQ(os.str(), "1969-12-31T23:59:59.999999999Z");
}

TEST(LiDate, NotADate) {
    for (char const* bad :
         {"", "2026-03-01", "2026-03-01T09:30:00", "2026-02-29T00:00:00Z", "2026-13-01T00:00:00Z",
          "2026-03-01T24:00:00Z", "2026-03-01T09:30:00.Z", "2026-03-01T09:30:00.1234567890Z",
          "2026-03-01T09:30:00Zjunk", "2026-03-01T09:30:00+1:00", "x026-03-01T09:30:00Z"}) {
        try {
            LiDate::fromIso8601(bad);
            ADD_FAILURE() << bad;
        } catch (ExBase const& e) {
            EXPECT_NE(e.getReason().find(std::string("\"") + bad + "\""), std::string::npos)
                << e.getReason();
        }
    }
}

TEST(LiDate, OrderedBySecondsThenNanoseconds) {
    EXPECT_LT(LiDate(5, 999999999), LiDate(6, 0));
    EXPECT_LT(LiDate(5, 1), LiDate(5, 2));
    EXPECT_EQ(LiDate(4, 1000000001), LiDate(5, 1));
    EXPECT_LE(LiDate(1, 0), LiDate::now());
}
