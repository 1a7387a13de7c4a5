#include "LkAtomicObj.h"
#include "LkSListNode.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

using namespace Vn;

namespace {

struct Pair {
    int a;
    int b;
};

struct Odd { // not a multiple of 8 bytes
    char c[13];
};

struct Big { // over 4096 bytes: blocks are then multiples of 4096
    std::array<std::uint32_t, 1300> v;
};

struct Node : LkSListNode {
    int id;
};

struct Stack {
    Node* head;
    int size;
};

} // namespace

TEST(LkAtomicObj, LoserTakesNewSnapshotAndDecidesAgain) {
    LkAtomicObj<Pair> obj(Pair{1, 2});
    LkAtomicWrGuard<Pair> winner(obj);
    LkAtomicWrGuard<Pair> loser(obj);

    winner->a = 10;
    EXPECT_TRUE(winner.commit());
    EXPECT_EQ(obj.load().a, 10);

    loser->b = 20;
    EXPECT_FALSE(loser.commit());
    // The failed edit is gone, the winner's is there.
    EXPECT_EQ(loser->a, 10);
    EXPECT_EQ(loser->b, 2);
    EXPECT_EQ(obj.load().b, 2);

    loser->b = 20;
    EXPECT_TRUE(loser.commit());
    Pair now = obj.load();
    EXPECT_EQ(now.a, 10);
    EXPECT_EQ(now.b, 20);

    // A guard that won stays current and can commit again.
    loser->a = 11;
    EXPECT_TRUE(loser.commit());
    EXPECT_EQ(obj.load().a, 11);
    EXPECT_FALSE(winner.commit());
    EXPECT_EQ(winner->a, 11);
}

TEST(LkAtomicObj, ReadGuardKeepsItsSnapshotUntilRefreshed) {
    LkAtomicObj<Pair> obj(Pair{1, 1});
    LkAtomicRdGuard<Pair> rd(obj);
    LkAtomicWrGuard<Pair> wr(obj);
    wr->a = 7;
    ASSERT_TRUE(wr.commit());
    EXPECT_EQ(rd->a, 1);
    rd.refresh();
    EXPECT_EQ(rd->a, 7);
    // Edits of a guard are private until commit.
    wr->b = 9;
    EXPECT_EQ(obj.load().b, 1);
    wr.refresh();
    EXPECT_EQ(wr->b, 1);
}

TEST(LkAtomicObj, NestedGuardsOnOneThread) {
    LkAtomicObj<Pair> x(Pair{0, 0});
    LkAtomicObj<Pair> y(Pair{100, 100});
    LkAtomicWrGuard<Pair> outer(x);
    outer->a = 1;
    {
        // Commits of the same type on the same thread, while the outer edit is pending, must
        // neither see nor disturb it.
        LkAtomicWrGuard<Pair> innerY(y);
        innerY->a = 101;
        EXPECT_TRUE(innerY.commit());
        LkAtomicWrGuard<Pair> innerX(x);
        EXPECT_EQ(innerX->a, 0);
        innerX->b = 2;
        EXPECT_TRUE(innerX.commit());
        innerY->b = 102;
        EXPECT_TRUE(innerY.commit());
    }
    EXPECT_EQ(outer->a, 1);
    EXPECT_FALSE(outer.commit());
    outer->a = 1;
    EXPECT_TRUE(outer.commit());
    Pair px = x.load();
    Pair py = y.load();
    EXPECT_EQ(px.a, 1);
    EXPECT_EQ(px.b, 2);
    EXPECT_EQ(py.a, 101);
    EXPECT_EQ(py.b, 102);
}

TEST(LkAtomicObj, ValuesOfAnySizeRoundTrip) {
    Odd o{};
    for (int i = 0; i < 13; ++i)
        o.c[i] = static_cast<char>('a' + i);
    LkAtomicObj<Odd> odd(o);
    {
        LkAtomicWrGuard<Odd> g(odd);
        g->c[12] = 'Z';
        ASSERT_TRUE(g.commit());
    }
    Odd got = odd.load();
    EXPECT_EQ(std::string(got.c, 12), "abcdefghijkl");
    EXPECT_EQ(got.c[12], 'Z');

    Big b{};
    for (std::size_t i = 0; i < b.v.size(); ++i)
        b.v[i] = static_cast<std::uint32_t>(i * 3);
    LkAtomicObj<Big> big(b);
    for (int round = 0; round < 3; ++round) {
        LkAtomicWrGuard<Big> g(big);
        for (auto& v : g->v)
            v += 1;
        ASSERT_TRUE(g.commit());
    }
    LkAtomicRdGuard<Big> rd(big);
    for (std::size_t i = 0; i < b.v.size(); ++i)
        ASSERT_EQ(rd->v[i], i * 3 + 3);
}

TEST(LkAtomicObj, TagWrapsWithoutCorruptingTheBlockAddress) {
    // A small value gets 22 tag bits; go once around them.
    LkAtomicObj<std::uint64_t> obj(0);
    std::uint64_t const n = (std::uint64_t(1) << LkAtomicObj<std::uint64_t>::kTagBits) + 3;
    LkAtomicWrGuard<std::uint64_t> g(obj);
    for (std::uint64_t i = 0; i < n; ++i) {
        *g += 1;
        ASSERT_TRUE(g.commit());
    }
    EXPECT_EQ(obj.load(), n);
    LkAtomicWrGuard<std::uint64_t> again(obj);
    *again = 42;
    EXPECT_TRUE(again.commit());
    EXPECT_EQ(obj.load(), 42u);
}

TEST(LkAtomicObj, IntrusiveStackInsideState) {
    Node nodes[3];
    for (int i = 0; i < 3; ++i)
        nodes[i].id = i;
    LkAtomicObj<Stack> obj(Stack{nullptr, 0});
    for (Node& n : nodes) {
        LkAtomicWrGuard<Stack> g(obj);
        do {
            LkSListNode::push(g->head, &n);
            ++g->size;
        } while (!g.commit());
    }
    int popped[3];
    for (int& id : popped) {
        LkAtomicWrGuard<Stack> g(obj);
        Node* top;
        do {
            top = LkSListNode::pop(g->head);
            --g->size;
        } while (!g.commit());
        ASSERT_NE(top, nullptr);
        id = top->id;
    }
    EXPECT_EQ(popped[0], 2);
    EXPECT_EQ(popped[1], 1);
    EXPECT_EQ(popped[2], 0);
    Stack s = obj.load();
    EXPECT_EQ(s.head, nullptr);
    EXPECT_EQ(s.size, 0);
    Node* empty = nullptr;
    EXPECT_EQ(LkSListNode::pop(empty), nullptr);
}
