#include "PiPixelLoop.h"
#include "Assertions.h"

#include <atomic>

namespace Vn {

PiPixelLoop::Imp::~Imp() = default;

PiPixelLoop::~PiPixelLoop() = default;

namespace {
// Set at package start, read by any thread after.
std::atomic<PiPixelGeneratorLoop::Factory> s_generatorFactory{nullptr};
template <class Loop>
std::atomic<typename Loop::Factory> s_factory{nullptr};
} // namespace

void PiPixelGeneratorLoop::setImplementationFactory(Factory factory) {
    s_generatorFactory.store(factory, std::memory_order_release);
}

PiPixelGeneratorLoop::PiPixelGeneratorLoop(IxWriteGuard& result) {
    Factory const factory = s_generatorFactory.load(std::memory_order_acquire);
    VN_ASSERT(factory != nullptr);
    _imp.reset(factory(*this, result));
}

template <class Derived, class... Sources>
void PiPixelLoopSources<Derived, Sources...>::setImplementationFactory(Factory factory) {
    s_factory<Derived>.store(factory, std::memory_order_release);
}

template <class Derived, class... Sources>
typename PiPixelLoopSources<Derived, Sources...>::Factory
PiPixelLoopSources<Derived, Sources...>::getImplementationFactory() {
    return s_factory<Derived>.load(std::memory_order_acquire);
}

template <class Derived, class... Sources>
PiPixelLoopSources<Derived, Sources...>::PiPixelLoopSources(
    IxWriteGuard& result, PiImageModifierTypes::AffectType affect) {
    Factory const factory = getImplementationFactory();
    VN_ASSERT(factory != nullptr);
    _imp.reset(factory(static_cast<Derived&>(*this), result, affect));
}

template class PiPixelLoopSources<PiPixelLoopOneSource, PiLine>;
template class PiPixelLoopSources<PiPixelLoopTwoSources, PiLine, PiLine>;
template class PiPixelLoopSources<PiPixelLoopThreeSources, PiLine, PiLine, PiLine>;
template class PiPixelLoopSources<PiPixelLoopFourSources, PiLine, PiLine, PiLine, PiLine>;
template class PiPixelLoopSources<PiPixelLoopFiveSources, PiLine, PiLine, PiLine, PiLine, PiLine>;

} // namespace Vn
