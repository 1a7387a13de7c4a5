// The flat address tables by which clone and archive map the nodes and sockets they walk.

#include "HoAddressMap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

using namespace Vn;

namespace {

// Keys `stride` bytes apart: packed objects, and page-aligned ones whose low bits all agree.
struct Case {
    std::size_t count;
    std::size_t stride;
    std::size_t reserved;
};

TEST(GraphAddressTable, EveryKeyKeepsItsValueThroughGrowth) {
    for (Case c : {Case{0, 8, 0}, Case{1, 8, 0}, Case{17, 8, 0}, Case{5000, 48, 0},
                   Case{5000, 4096, 0}, Case{40000, 8, 40000}}) {
        SCOPED_TRACE(testing::Message() << c.count << " keys " << c.stride << " apart");
        std::vector<char> arena((c.count + 1) * c.stride * 2);
        auto key = [&](std::size_t i) {
            return static_cast<char const*>(&arena[i * c.stride]);
        };
        HoAddressMap<char const*, std::size_t> map(c.reserved);
        HoAddressSet<char const*> set;
        // Even slots are keys, odd ones are never put in.
        for (std::size_t i = 0; i < c.count; ++i) {
            EXPECT_TRUE(map.insert(key(2 * i), i).second);
            EXPECT_TRUE(set.insert(key(2 * i)));
        }
        for (std::size_t i = 0; i < c.count; ++i) {
            auto [value, added] = map.insert(key(2 * i), 999999);
            EXPECT_FALSE(added);
            EXPECT_EQ(*value, i);
            EXPECT_FALSE(set.insert(key(2 * i)));
            ASSERT_NE(map.find(key(2 * i)), nullptr);
            EXPECT_EQ(*map.find(key(2 * i)), i);
            EXPECT_FALSE(map.contains(key(2 * i + 1)));
            EXPECT_FALSE(set.contains(key(2 * i + 1)));
        }
        EXPECT_EQ(map.size(), c.count);
        EXPECT_EQ(set.size(), c.count);
        EXPECT_EQ(map.find(nullptr), nullptr);
    }
}

} // namespace
