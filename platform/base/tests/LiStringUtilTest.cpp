#include "LiStringUtil.h"

#include <gtest/gtest.h>

#include <climits>

using namespace Vn;

TEST(LiStringUtil, NumbersAndCase) {
    EXPECT_EQ(LiStringUtil::convertNb(0), "0");
    EXPECT_EQ(LiStringUtil::convertNb(-42), "-42");
    EXPECT_EQ(LiStringUtil::convertNb(LLONG_MIN), "-9223372036854775808");
    // Only ASCII letters change: a UTF-8 capital stays as it is.
    EXPECT_EQ(LiStringUtil::toLowerCase("EXR.Tif \xC3\x89t\xC3\xA9"), "exr.tif \xC3\x89t\xC3\xA9");
}

TEST(WideStringUtil, Utf8BothWays) {
    // One, two, three and four bytes.
    std::wstring const wide = L"a\u00e9\u20ac\U0001F600";
    std::string const utf8 = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    EXPECT_EQ(WideStringUtil::narrowMB(wide), utf8);
    EXPECT_EQ(WideStringUtil::widenMB(utf8), wide);
    EXPECT_EQ(WideStringUtil::widenMB(WideStringUtil::narrowMB(wide)), wide);

    // Malformed input: a stray continuation byte, a truncated sequence, an overlong slash and an
    // encoded surrogate each give U+FFFD per spoilt byte, and what follows still reads.
    EXPECT_EQ(WideStringUtil::widenMB("\x80x"), L"\uFFFDx");
    EXPECT_EQ(WideStringUtil::widenMB("y\xE2\x82"), L"y\uFFFD\uFFFD");
    EXPECT_EQ(WideStringUtil::widenMB("\xC0\xAF"), L"\uFFFD\uFFFD");
    EXPECT_EQ(WideStringUtil::widenMB("\xED\xA0\x80z"), L"\uFFFD\uFFFD\uFFFDz");
    // A wide value beyond Unicode narrows to U+FFFD.
    if constexpr (sizeof(wchar_t) == 4) {
        EXPECT_EQ(WideStringUtil::narrowMB(std::wstring(1, wchar_t(0x110000))), "\xEF\xBF\xBD");
    }
}
