#pragma once

// Requests and a fixture shared by the engine's tests.

#include "EvEventManager.h"
#include "InPackageInit.h"
#include "LgLog.h"
#include "PxNode.h"
#include "PxRequest.h"
#include "PxRequestImp.h"
#include "PxRequestMgr.h"
#include "RequestMgrImp.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace VnTest {

using namespace Vn;

// A request whose work is a function.
class FnRequest : public PxRequest {
public:
    explicit FnRequest(std::function<void()> fn, RequestType type = RequestType(),
                       PriorityLevel level = 0)
        : _fn(std::move(fn)), _type(type), _level(level) {}
    RequestType getRequestType() const override { return _type; }
    PriorityLevel getPriorityLevel() const override { return _level; }
    void performExecute() override {
        if (_fn)
            _fn();
    }
    void completeExecution() override {
        if (_complete)
            _complete();
    }
    std::function<void()> _complete;

private:
    std::function<void()> _fn;
    RequestType _type;
    PriorityLevel _level;
};

// A processing node under a handle of the tool side, initialised as a graph's nodes are.
template <class N>
PxStrongHndl<N> makeNode(N* n = new N) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return h;
}

inline PxRequestMgr& engine() {
    return PxRequestMgr::getInstance();
}
inline RequestMgrImp& engineImp() {
    return static_cast<RequestMgrImp&>(engine());
}

// Submits from the calling thread and waits; raises what the request raised.
inline void runAndWait(PxRequest* r) {
    PxRequestPtr<PxRequest> p(r);
    engine().executeRequest(r, false);
    engine().waitRequest(r);
}

// Submits from the calling thread; the owner reads (and so waits for) its results.
template <class R>
PxRequestPtr<R> submitted(R* r) {
    PxRequestPtr<R> owner(r);
    engine().executeRequest(r, false);
    return owner;
}

// Polls until cond holds; false after the deadline.
template <class Cond>
bool eventually(Cond cond, double seconds = 10.0) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

// Keeps the log lines written while it lives.
class LogCapture {
public:
    LogCapture()
        : _previous(LgLog::setOutput([this](LgEntry const& e) {
              std::lock_guard g(_m);
              _lines.push_back(e.format());
          })) {}
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;
    ~LogCapture() { LgLog::setOutput(std::move(_previous)); }
    // Lines holding every one of the parts.
    int count(std::initializer_list<char const*> parts) const {
        std::lock_guard g(_m);
        int n = 0;
        for (auto const& l : _lines) {
            bool all = true;
            for (char const* p : parts)
                all = all && l.find(p) != std::string::npos;
            n += all ? 1 : 0;
        }
        return n;
    }

private:
    mutable std::mutex _m;
    std::vector<std::string> _lines;
    LgLog::Output _previous;
};

// Starts the packages with a small pool, and stops them after the test: the engine's shutdown
// checks run at every test's end.
class EngineTest : public ::testing::Test {
protected:
    virtual int poolSize() const { return 4; }
    void SetUp() override {
        InInitMgr::getInstance().initialize();
        PxRequestImp::setNbWorkerThreads(poolSize());
    }
    void TearDown() override {
        if (!::testing::Test::HasFatalFailure()) {
            if (engineImp().areWorkersStarted())
                engine().sync();
            // Callbacks on the event thread may still be releasing requests.
            EvEventManager::getInstance().flush();
            // A worker may still be finishing the last post-execution.
            EXPECT_TRUE(eventually([] { return engineImp().getNbLiveRequests() == 0; }))
                << engineImp().getNbLiveRequests() << " requests leaked";
        }
        InInitMgr::getInstance().finalize();
    }
};

} // namespace VnTest
