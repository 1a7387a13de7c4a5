#pragma once

#include "Assertions.h"
#include "LkLock.h"
#include "VnExport.h"

#include <atomic>

namespace Vn {

// The states and the shared creation lock of lazily made singletons.
class VN_EXPORT LkSingletonBase {
public:
    enum State { UNINITIALIZED, INITIALIZED, DESTROYED };

    // The one lock, "LkSingleton init lock", under which every such singleton is created. It is
    // taken again by a constructor that reaches another singleton: the lock nests.
    static LkLock& getInitLock();
};

// The process-wide instance of T, created on first use and destroyed at process end, after
// everything constructed before it. T's default constructor may be private if it befriends
// LkSingleton<T>. Reaching it after its destruction is an assertion failure; tryGetInstance
// then gives null, for destructors that run late.
template <class T>
class VN_EXPORT LkSingleton : public LkSingletonBase {
public:
    static T& getInstance() {
        if (T* p = s_instance.load(std::memory_order_acquire))
            return *p;
        return create();
    }
    // The instance if it exists, without creating it.
    static T* tryGetInstance() noexcept { return s_instance.load(std::memory_order_acquire); }
    static State getState() noexcept { return s_state.load(std::memory_order_acquire); }

private:
    // Deletes the instance when static objects are destroyed.
    struct Destroyer {
        ~Destroyer() {
            T* p = s_instance.exchange(nullptr, std::memory_order_acq_rel);
            s_state.store(DESTROYED, std::memory_order_release);
            delete p;
        }
    };

    static T& create() {
        LkGuard guard(getInitLock());
        // clang-format off
        VN_ASSERT(getState() != DESTROYED);
        // clang-format on
        if (T* p = s_instance.load(std::memory_order_acquire))
            return *p;
        // The destroyer is made after T, so singletons that T's constructor reached die after T.
        T* p = new T();
        static Destroyer destroyer;
        s_instance.store(p, std::memory_order_release);
        s_state.store(INITIALIZED, std::memory_order_release);
        return *p;
    }

    inline static std::atomic<T*> s_instance{nullptr};
    inline static std::atomic<State> s_state{UNINITIALIZED};
};

} // namespace Vn
