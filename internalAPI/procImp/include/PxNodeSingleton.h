#pragma once

#include "LkLock.h"
#include "PxNode.h"

#include <atomic>

namespace Vn {

// A node made on first demand and shared by everyone who asks, from outside the workers.
template <class N>
class PxNodeSingleton {
public:
    PxNodeSingleton() = default;
    PxNodeSingleton(PxNodeSingleton const&) = delete;
    PxNodeSingleton& operator=(PxNodeSingleton const&) = delete;
    // The shared node goes on the interface thread, at the end of the package.
    virtual ~PxNodeSingleton() noexcept {}

    PxStrongHndl<N> const& getNodeInstance() {
        if (_made.load(std::memory_order_acquire))
            return _node;
        LkGuard guard(_lock);
        if (!_made.load(std::memory_order_relaxed)) {
            _node = createNode();
            _made.store(true, std::memory_order_release);
        }
        return _node;
    }

protected:
    virtual PxStrongHndl<N> createNode() = 0;

private:
    LkLock _lock{"PxNodeSingleton"};
    std::atomic<bool> _made{false};
    PxStrongHndl<N> _node;
};

} // namespace Vn
