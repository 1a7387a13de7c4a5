#include "EvEventManager.h"
#include "ExBase.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Vn {

EvRequestEvent::~EvRequestEvent() = default;

namespace {
class FunctionEvent final : public EvRequestEvent {
public:
    explicit FunctionEvent(std::function<void()> fn) : _fn(std::move(fn)) {}
    void execute() override { _fn(); }

private:
    std::function<void()> _fn;
};
} // namespace

struct EvEventManager::Impl {
    std::mutex lock;
    std::condition_variable wake;
    std::condition_variable done;
    std::deque<OPtr<EvRequestEvent>> queue;
    std::uint64_t posted = 0;
    std::uint64_t executed = 0;
    bool stopping = false;
    std::thread thread;
    std::atomic<std::thread::id> threadId{};

    void run() {
        std::unique_lock g(lock);
        for (;;) {
            wake.wait(g, [this] { return stopping || !queue.empty(); });
            while (!queue.empty()) {
                OPtr<EvRequestEvent> e = std::move(queue.front());
                queue.pop_front();
                g.unlock();
                try {
                    e->execute();
                } catch (std::exception const& ex) {
                    ExStdout::printAtomically(std::string("Event failed: ") + ex.what());
                } catch (...) {
                    ExStdout::printAtomically("Event failed: unknown exception");
                }
                e.reset();
                g.lock();
                ++executed;
                done.notify_all();
            }
            if (stopping)
                return;
        }
    }
};

EvEventManager::EvEventManager() : _impl(new Impl) {}
EvEventManager::~EvEventManager() {
    stop();
    delete _impl;
}

EvEventManager& EvEventManager::getInstance() {
    // Kept for the life of the process: events may be posted from static destructors.
    static EvEventManager* instance = new EvEventManager;
    return *instance;
}

void EvEventManager::postEvent(OPtr<EvRequestEvent> event) {
    if (!event)
        return;
    std::lock_guard g(_impl->lock);
    _impl->queue.push_back(std::move(event));
    ++_impl->posted;
    if (!_impl->thread.joinable()) {
        _impl->stopping = false;
        _impl->thread = std::thread([this] { _impl->run(); });
        _impl->threadId.store(_impl->thread.get_id(), std::memory_order_relaxed);
    }
    _impl->wake.notify_one();
}

void EvEventManager::post(std::function<void()> fn) {
    postEvent(OPtr<EvRequestEvent>(new FunctionEvent(std::move(fn))));
}

void EvEventManager::flush() {
    if (isEventThread())
        return;
    std::unique_lock g(_impl->lock);
    std::uint64_t const target = _impl->posted;
    _impl->done.wait(g, [&] { return _impl->executed >= target || !_impl->thread.joinable(); });
}

void EvEventManager::stop() {
    std::thread t;
    {
        std::lock_guard g(_impl->lock);
        if (!_impl->thread.joinable() || isEventThread())
            return;
        _impl->stopping = true;
        t = std::move(_impl->thread);
    }
    _impl->wake.notify_one();
    t.join();
    std::lock_guard g(_impl->lock);
    _impl->threadId.store(std::thread::id(), std::memory_order_relaxed);
    _impl->done.notify_all();
}

bool EvEventManager::isEventThread() const {
    return std::this_thread::get_id() == _impl->threadId.load(std::memory_order_relaxed);
}

} // namespace Vn
