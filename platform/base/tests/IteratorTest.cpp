#include "Iterator.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

using namespace Vn;

namespace {
template <class It>
std::vector<int> drain(It& it) {
    std::vector<int> out;
    for (; !it.atEnd(); it.next())
        out.push_back(it.item());
    return out;
}
} // namespace

TEST(Iterator, WalksARangeAndCopiesMoveOnTheirOwn) {
    std::list<int> values{1, 2, 3};
    auto it = Iterator<int>::overRange(values.begin(), values.end());
    EXPECT_EQ(it.getCardinality(), 3);
    it.next();
    Iterator<int> copy = it;
    EXPECT_EQ(drain(it), (std::vector<int>{2, 3}));
    EXPECT_TRUE(it.atEnd());
    EXPECT_EQ(copy.item(), 2);

    // The view writes through to the sequence.
    copy.item() = 20;
    EXPECT_EQ(values, (std::list<int>{1, 20, 3}));

    it.first();
    EXPECT_EQ(drain(it), (std::vector<int>{1, 20, 3}));
    it = copy;
    EXPECT_EQ(it.item(), 20);
}

TEST(Iterator, OwnedValuesOutliveTheirSource) {
    Iterator<std::string> it;
    {
        std::vector<std::string> source{"a", "b"};
        it = Iterator<std::string>::overValues(source);
    }
    EXPECT_EQ(it.getCardinality(), 2);
    EXPECT_EQ(it.item(), "a");
    it.next();
    EXPECT_EQ(it.item(), "b");
}

TEST(Iterator, EmptyAndExhaustedIteratorsRefuseItems) {
    Iterator<int> none;
    EXPECT_TRUE(none.atEnd());
    EXPECT_EQ(none.getCardinality(), 0);
    none.first();
    try {
        none.item();
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "!atEnd()");
    }
    auto one = Iterator<int>::overValues({7});
    one.next();
    EXPECT_THROW(one.next(), ExAssertionFailed);
}

TEST(ConstIterator, ReadsAnIteratorWithoutChangingIt) {
    std::vector<int> values{4, 5};
    auto it = Iterator<int>::overRange(values.begin(), values.end());
    it.next();
    ConstIterator<int> c = it;
    EXPECT_EQ(c.getCardinality(), 2);
    EXPECT_EQ(c.item(), 5);
    c.first();
    EXPECT_EQ(drain(c), (std::vector<int>{4, 5}));
    // The source kept its own position.
    EXPECT_EQ(it.item(), 5);
}
