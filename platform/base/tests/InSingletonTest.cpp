#include "InSingleton.h"

#include <gtest/gtest.h>

using namespace Vn;

namespace {
struct Thing {
    explicit Thing(int* counter) : alive(counter) { ++*alive; }
    ~Thing() { --*alive; }
    int* alive;
};
} // namespace

// The slot's states, what each operation does in each, and the class named in each failure.
TEST(InSingleton, StatesAndTheirFailures) {
    int alive = 0;
    InSingleton<Thing> slot("Thing");
    auto reasonOf = [](auto&& f) -> std::string {
        try {
            f();
        } catch (ExBase const& e) {
            return e.getReason();
        }
        return "no failure";
    };
    EXPECT_FALSE(slot.isInitialized());
    EXPECT_THROW(slot.getInstance(), InSingletonEx::ExNotInitialized);
    EXPECT_EQ(reasonOf([&] { slot.getInstance(); }), "Thing is not initialized");
    EXPECT_THROW(slot.initialize(nullptr), ExNullPtr);
    EXPECT_EQ(slot.getState(), InSingleton<Thing>::NOT_INITIALIZED);

    slot.initialize(makeOPtr<Thing>(&alive));
    EXPECT_TRUE(slot.isInitialized());
    EXPECT_EQ(slot.getInstance().alive, &alive);
    EXPECT_EQ(reasonOf([&] { slot.initialize(makeOPtr<Thing>(&alive)); }),
              "Thing is already initialized");
    EXPECT_EQ(alive, 1) << "the refused object is deleted, the first one kept";

    slot.finalize();
    EXPECT_EQ(alive, 0);
    EXPECT_THROW(slot.getInstance(), InSingletonEx::ExNotInitialized);
    slot.finalize();
    slot.initialize(makeOPtr<Thing>(&alive));
    EXPECT_EQ(alive, 1) << "a finalized slot takes a new object";

    slot.destroy();
    EXPECT_EQ(alive, 0);
    EXPECT_THROW(slot.getInstance(), InSingletonEx::ExAlreadyDestroyed);
    EXPECT_EQ(reasonOf([&] { slot.initialize(makeOPtr<Thing>(&alive)); }),
              "Thing has been destroyed and cannot be used again");
    EXPECT_EQ(alive, 0);
}

TEST(InSingleton, FailuresCloneToTheirOwnClass) {
    InSingletonEx::ExAlreadyInitialized const e(__FILE__, __LINE__, "X");
    OPtr<ExBase> c = e.clone();
    EXPECT_THROW(c->raise(), InSingletonEx::ExAlreadyInitialized);
}
