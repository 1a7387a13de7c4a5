#include "PxEWAFilterShape.h"
#include "Assertions.h"

#include <atomic>
#include <cmath>

namespace Vn {

namespace {
// Written at package start and end only, read by workers in between.
std::atomic<PxEWAFilterShape const*> s_gauss{nullptr};
std::atomic<PxEWAFilterShape const*> s_jinc2{nullptr};
std::atomic<PxEWAFilterShape const*> s_jinc3{nullptr};

void install(std::atomic<PxEWAFilterShape const*>& slot, IpFilters::Filter const& filter) {
    delete slot.exchange(new PxEWAFilterShape(filter, -1.0f), std::memory_order_acq_rel);
}
} // namespace

PxEWAFilterShape::PxEWAFilterShape(IpFilters::Filter const& filter, float radius)
    : _radius(radius < 0.0f ? filter.getRadius() : radius) {
    // The step is single precision, as the walk's indices are computed from it.
    float const step = _radius * _radius / static_cast<float>(IDX_SIZE - 1);
    for (int i = 0; i < IDX_SIZE; ++i)
        _table[i] = filter.evaluate(
            static_cast<float>(std::sqrt(static_cast<double>(i) * static_cast<double>(step))));
}

UPtr<PxEWAFilterShape const> PxEWAFilterShape::getGauss() noexcept {
    return s_gauss.load(std::memory_order_acquire);
}

UPtr<PxEWAFilterShape const> PxEWAFilterShape::getJinc2() noexcept {
    return s_jinc2.load(std::memory_order_acquire);
}

UPtr<PxEWAFilterShape const> PxEWAFilterShape::getJinc3() noexcept {
    return s_jinc3.load(std::memory_order_acquire);
}

void PxEWAFilterShape::initialize() {
    install(s_gauss, IpFilters::Gaussian(0.5f));
    install(s_jinc2, IpFilters::Jinc2());
    install(s_jinc3, IpFilters::Jinc3());
}

void PxEWAFilterShape::finalize() noexcept {
    delete s_gauss.exchange(nullptr, std::memory_order_acq_rel);
    delete s_jinc2.exchange(nullptr, std::memory_order_acq_rel);
    delete s_jinc3.exchange(nullptr, std::memory_order_acq_rel);
}

} // namespace Vn
