#pragma once

// The test binary replaces the global operator new with one that counts, while asked, the
// allocations of every thread.

#include <atomic>

namespace VnTest {

extern std::atomic<bool> g_counting;
extern std::atomic<long> g_allocations;

// Counts the allocations made while it lives.
class CountAllocations {
public:
    CountAllocations() {
        g_allocations.store(0);
        g_counting.store(true);
    }
    ~CountAllocations() { g_counting.store(false); }
    long count() const { return g_allocations.load(); }
};

} // namespace VnTest
