#pragma once

#include "VnExport.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace Vn {

// A named counting semaphore, safe from any thread.
class VN_EXPORT LkSema {
public:
    LkSema(char const* name, int count);
    LkSema(LkSema const&) = delete;
    LkSema& operator=(LkSema const&) = delete;
    ~LkSema();

    void post() noexcept;
    // Takes one unit, sleeping until there is one.
    void wait() noexcept;
    // Takes one unit if there is one.
    bool tryWait() noexcept;

    int getCount() const noexcept {
        return static_cast<int>(_count.load(std::memory_order_relaxed));
    }
    std::string const& getName() const noexcept { return _name; }

private:
    std::atomic<std::uint32_t> _count;
    std::atomic<std::uint32_t> _sleepers{0};
    std::string _name;
};

} // namespace Vn
