#pragma once

// Nodes and helpers shared by the node evaluator's tests.

#include "EngineTestSupport.h"

#include "Cb.h"
#include "EvEventManager.h"
#include "PxNodeEvaluator.h"
#include "PxValueProtocol.h"

#include <atomic>
#include <exception>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace VnTest {

using namespace Vn;

// The evaluator belongs to the event thread: tests reach it there. Raises here what fn raised.
inline void onEventThread(std::function<void()> const& fn) {
    std::exception_ptr error;
    EvEventManager::getInstance().post([&] {
        try {
            fn();
        } catch (...) {
            error = std::current_exception();
        }
    });
    EvEventManager::getInstance().flush();
    if (error)
        std::rethrow_exception(error);
}

// 2t + 1, valid at t only; records the times it was asked for and the threads that asked. A
// closed gate holds every evaluation until it opens.
class Ramp final : public PxAnimValueProtocol<double> {
public:
    Ramp() : PxNode(PxNode::Init{"Ramp"}) {}
    PxResult<double> getValue(PxTimeContext const& context) const override {
        if (!_open.load()) {
            PxWorkerBlockingGuard blocking;
            while (!_open.load())
                std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        double const t = context.getTime();
        {
            std::lock_guard g(_m);
            _times.push_back(t);
            _threads.insert(std::this_thread::get_id());
        }
        return PxResult<double>(2.0 * t + 1.0, PxValidityInterval(t, t));
    }
    void close() { _open.store(false); }
    void open() { _open.store(true); }
    std::vector<double> times() const {
        std::lock_guard g(_m);
        return _times;
    }
    std::size_t nbThreads() const {
        std::lock_guard g(_m);
        return _threads.size();
    }

private:
    std::atomic<bool> _open{true};
    mutable std::mutex _m;
    mutable std::vector<double> _times;
    mutable std::set<std::thread::id> _threads;
};

// Counts the calls it gets, and remembers whether they came on the event thread.
class ReadyCounter final : public CbHandler<CbEmptyType> {
public:
    void execute(CbEmptyType const&) override {
        _onEventThread = EvEventManager::getInstance().isEventThread();
        _calls.fetch_add(1);
    }
    int calls() const { return _calls.load(); }
    bool cameOnEventThread() const { return _onEventThread.load(); }

private:
    std::atomic<int> _calls{0};
    std::atomic<bool> _onEventThread{false};
};

template <class N>
PxWeakHndl<PxNode const> weakOf(PxStrongHndl<N> const& h) {
    return PxWeakHndl<PxNode const>(PxStrongHndl<PxNode const>(h));
}

} // namespace VnTest
