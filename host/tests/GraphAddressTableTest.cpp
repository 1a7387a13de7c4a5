// The flat containers of the host graph: the tables by which clone and archive map the nodes
// and sockets they walk, by address and by id, and the lists that hold their first items in
// place.

#include "HoAddressMap.h"
#include "HoSmallList.h"

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

struct Object final : PiGraphObject {
    bool isValid() const override { return true; }
};

// Objects made together index by a flat array over their ids, objects made far apart by
// address; both keep an object's first position and know no other object.
TEST(GraphAddressTable, ObjectsAreFoundByIdWhateverTheSpanOfTheirIds) {
    for (std::size_t gap : {0, 100000}) {
        SCOPED_TRACE(testing::Message() << gap << " objects made between two halves");
        std::vector<std::unique_ptr<Object>> made;
        auto make = [&](std::size_t n) {
            for (std::size_t i = 0; i < n; ++i)
                made.push_back(std::make_unique<Object>());
        };
        make(50);
        make(gap);
        make(50);
        Object stranger;
        std::vector<Object const*> listed;
        for (std::size_t i = 0; i < 25; ++i)
            listed.push_back(made[2 * i].get());
        for (std::size_t i = 0; i < 25; ++i)
            listed.push_back(made[made.size() - 1 - 2 * i].get());
        listed.push_back(listed[3]);
        HoIdIndex const index(listed);
        for (std::size_t i = 0; i + 1 < listed.size(); ++i)
            EXPECT_EQ(index.find(listed[i]), static_cast<int>(i));
        EXPECT_EQ(index.find(listed.back()), 3);
        EXPECT_FALSE(index.contains(made[1].get()));
        EXPECT_FALSE(index.contains(&stranger));
        EXPECT_FALSE(index.contains(nullptr));
    }
    EXPECT_FALSE(HoIdIndex(std::vector<Object const*>{}).contains(nullptr));
}

// Inserts and erases at every position, across the bound of the items held in place, keep the
// order a std::vector keeps, and every item is released once, when it leaves or with the list.
TEST(GraphAddressTable, SmallListsKeepTheOrderOfAVector) {
    std::vector<std::weak_ptr<int>> made;
    {
        HoSmallList<std::shared_ptr<int>, 2> list;
        std::vector<std::shared_ptr<int>> expected;
        unsigned seed = 7;
        for (int step = 0; step < 400; ++step) {
            seed = seed * 1103515245u + 12345u;
            std::size_t const r = seed >> 16;
            if (expected.empty() || (r % 3 != 0 && expected.size() < 7)) {
                auto item = std::make_shared<int>(step);
                made.push_back(item);
                std::size_t const at = r % (expected.size() + 1);
                EXPECT_EQ(**list.insert(list.begin() + at, item), step);
                expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(at), item);
            } else {
                std::size_t const at = r % expected.size();
                list.erase(list.begin() + at);
                expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(at));
            }
            ASSERT_EQ(list.size(), expected.size());
            for (std::size_t i = 0; i < expected.size(); ++i)
                ASSERT_EQ(list[i], expected[i]) << "step " << step << ", item " << i;
            for (auto const& w : made)
                ASSERT_EQ(w.use_count(), w.expired() ? 0 : 2);
        }
        expected.clear();
    }
    for (auto const& w : made)
        EXPECT_TRUE(w.expired());
}

} // namespace
