#include "EngineTestSupport.h"

#include "Assertions.h"
#include "ExBase.h"

using namespace VnTest;
using namespace Vn;

namespace {
constexpr PxRequest::RequestType kSequential{PxRequest::SEQUENTIAL, PxRequest::REFERENCED,
                                             PxRequest::CPU};

void burnCpu() {
    volatile double x = 0;
    for (int i = 0; i < 3000000; ++i)
        x = x + i * 0.5;
}

void setTimer(bool on) {
    runAndWait(new FnRequest([on] { PxRequestImp::CascadingTimer::enable(on); }, kSequential));
}
} // namespace

using CascadingTimer = EngineTest;

TEST_F(CascadingTimer, OffUntilEnabledFromASequentialRequest) {
    EXPECT_FALSE(PxRequestImp::CascadingTimer::isEnabled());
    double off = -1;
    runAndWait(new FnRequest([&] {
        PxRequestImp::CascadingTimer t;
        burnCpu();
        off = t.stop();
    }));
    EXPECT_EQ(off, 0.0);
    try {
        PxRequestImp::CascadingTimer::enable(true);
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "PxRequestMgr::getInstance().isWorkerThreadSequential()");
    }
}

TEST_F(CascadingTimer, AScopeExcludesNestedScopesAndIncludesWhatItWaitedFor) {
    setTimer(true);
    double outer = 0, inner = 0, again = 0;
    runAndWait(new FnRequest([&] {
        PxRequestImp::CascadingTimer t;
        {
            PxRequestImp::CascadingTimer nested;
            burnCpu();
            inner = nested.stop();
        }
        // As much work again, in a request waited for: its time reaches this scope wherever it
        // ran.
        runAndWait(new FnRequest([] { burnCpu(); }));
        outer = t.stop();
        again = t.stop();
    }));
    setTimer(false);
    EXPECT_GT(inner, 0.0);
    EXPECT_EQ(outer, again);
    // About one burn: the child's, not the nested scope's.
    EXPECT_GT(outer, 0.5 * inner);
    EXPECT_LT(outer, 1.5 * inner);
}
