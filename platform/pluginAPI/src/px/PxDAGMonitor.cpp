#include "PxDAGMonitor.h"

#include "Assertions.h"
#include "ExBase.h"

#include <atomic>

namespace Vn {

namespace {
std::atomic<PxDAGMonitor*> s_monitor{nullptr};
} // namespace

PxDAGMonitor::~PxDAGMonitor() = default;

void PxDAGMonitor::initialize(PxDAGMonitor* monitor) {
    VN_ASSERT(monitor != nullptr);
    VN_ASSERT(s_monitor.load() == nullptr);
    s_monitor.store(monitor, std::memory_order_release);
}

void PxDAGMonitor::finalize() {
    delete s_monitor.exchange(nullptr, std::memory_order_acq_rel);
}

PxDAGMonitor& PxDAGMonitor::getInstance() {
    PxDAGMonitor* m = s_monitor.load(std::memory_order_acquire);
    if (!m) [[unlikely]]
        throw ExInternalError(__FILE__, __LINE__, "The DAG monitor is not started");
    return *m;
}

PxDAGMonitor* PxDAGMonitor::tryGetInstance() noexcept {
    return s_monitor.load(std::memory_order_acquire);
}

bool PxDAGMonitor::isInitialized() noexcept {
    return tryGetInstance() != nullptr;
}

PxDAGMonitorGroupGuard::PxDAGMonitorGroupGuard(std::string const& name) {
    if (PxDAGMonitor* m = PxDAGMonitor::tryGetInstance()) {
        m->pushGroup(name);
        _pushed = true;
    }
}

PxDAGMonitorGroupGuard::PxDAGMonitorGroupGuard(TopLevel) {
    if (PxDAGMonitor* m = PxDAGMonitor::tryGetInstance()) {
        m->pushTopLevelGroup();
        _pushed = true;
    }
}

PxDAGMonitorGroupGuard::~PxDAGMonitorGroupGuard() {
    if (!_pushed)
        return;
    // The monitor may have gone in between; then there is no stack to pop.
    if (PxDAGMonitor* m = PxDAGMonitor::tryGetInstance())
        m->popGroup();
}

} // namespace Vn
