#include "ExBase.h"
#include "Assertions.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Vn;

namespace {
class ExCustom : public ExBase {
public:
    ExCustom(char const* file, int line, int code) : ExBase(file, line), _code(code) {
        setReason("custom " + std::to_string(code));
    }
    int code() const { return _code; }
    VN_EX_CLONE_RAISE(ExCustom)

private:
    int _code;
};
} // namespace

TEST(Assertions, TextIsConditionAndPositionIsCarried) {
    int x = 3;
    int const line = __LINE__ + 2;
    try {
        VN_ASSERT(x == 4 && "never");
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "x == 4 && \"never\"");
        EXPECT_EQ(e.getFile(), "platform/base/tests/ExBaseTest.cpp");
        EXPECT_EQ(e.getLine(), line);
        EXPECT_EQ(std::string(e.what()), "platform/base/tests/ExBaseTest.cpp:" +
                                             std::to_string(line) + ": x == 4 && \"never\"");
    }
}

TEST(Assertions, ProgramStopIsItsOwnCatchableType) {
    EXPECT_THROW(VN_ABORT("state 7"), ExProgramAborted);
    try {
        VN_ABORT("state 7");
    } catch (ExAssertionFailed const&) {
        FAIL() << "a program stop is not an assertion";
    } catch (ExBase const& e) {
        EXPECT_EQ(e.getReason(), "state 7");
    }
}

TEST(ExBase, CloneAndRaiseKeepTheRealClass) {
    ExCustom original(__FILE__, 10, 42);
    OPtr<ExBase> copy = original.clone();
    try {
        copy->raise();
        FAIL();
    } catch (ExCustom const& e) {
        EXPECT_EQ(e.code(), 42);
        EXPECT_EQ(e.getLine(), 10);
    }
    MsgException<ExInternalError> msg(__FILE__, 5, "boom");
    EXPECT_EQ(msg.getReason(), "boom");
    EXPECT_THROW(msg.clone()->raise(), ExInternalError);
}

TEST(ExRethrow, RaisesTheOriginalTypeOnAnotherThread) {
    OPtr<ExBase> caught;
    std::thread([&] {
        auto work = [] {
            throw ExCustom("worker.cpp", 77, 9);
        };
        caught = ExWrapper::execute(work);
    }).join();
    ASSERT_TRUE(caught);

    ExRethrow<ExBase> wrapper(__FILE__, __LINE__, std::move(caught));
    EXPECT_EQ(wrapper.getReason(), "custom 9");
    EXPECT_NE(wrapper.getDetailedReason().find("worker.cpp:77"), std::string::npos);
    try {
        wrapper.raise();
        FAIL();
    } catch (ExCustom const& e) {
        EXPECT_EQ(e.code(), 9);
        EXPECT_EQ(e.getFile(), "worker.cpp");
    }
    // The wrapper survives being cloned itself, as a request's stored failure is.
    EXPECT_THROW(wrapper.clone()->raise(), ExCustom);
}

TEST(ExWrapper, TurnsEveryFailureIntoAnExBase) {
    auto ok = [] {
    };
    EXPECT_FALSE(ExWrapper::execute(ok));
    auto stdFail = [] {
        throw std::runtime_error("disk full");
    };
    auto e1 = ExWrapper::execute(stdFail);
    ASSERT_TRUE(e1);
    EXPECT_EQ(e1->getReason(), "disk full");
    auto odd = [] {
        throw 3;
    };
    auto e2 = ExWrapper::execute(odd);
    ASSERT_TRUE(e2);
    EXPECT_THROW(e2->raise(), ExInternalError);
    auto withArgs = [](int a, int b) {
        if (a + b == 5)
            throw ExCustom(__FILE__, __LINE__, a + b);
    };
    auto e3 = ExWrapper::execute(withArgs, 2, 3);
    ASSERT_TRUE(e3);
    EXPECT_THROW(e3->raise(), ExCustom);
}

TEST(OPtr, NullDereferenceRaises) {
    OPtr<int> p;
    EXPECT_THROW(*p, ExNullPtr);
    p.reset(new int(4));
    EXPECT_EQ(*p, 4);
    OPtr<int> q = std::move(p);
    EXPECT_TRUE(p.isNull());
    EXPECT_EQ(*q, 4);
}
