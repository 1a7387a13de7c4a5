#pragma once

#include "LkLock.h"
#include "VnExport.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace Vn {

// Something a thread can wait on while it holds an LkLock.
class VN_EXPORT LkWaitable {
public:
    LkWaitable(LkWaitable const&) = delete;
    LkWaitable& operator=(LkWaitable const&) = delete;

    // Releases the guard's lock, sleeps until woken, and takes the lock again. The calling thread
    // must hold the lock. It may wake without a signal: callers wait in a loop on their condition.
    void wait(LkGuard& guard);

protected:
    LkWaitable() noexcept = default;
    ~LkWaitable() = default;
    void wake(int count) noexcept;

private:
    std::atomic<std::uint32_t> _sequence{0};
    std::atomic<std::uint32_t> _sleepers{0};
};

// A named condition variable over LkLock.
class VN_EXPORT LkCondVar : public LkWaitable {
public:
    explicit LkCondVar(char const* name);
    ~LkCondVar();

    // Wakes one waiter, or all.
    void signal() noexcept;
    void broadcast() noexcept;

    std::string const& getName() const noexcept { return _name; }

private:
    std::string _name;
};

} // namespace Vn
