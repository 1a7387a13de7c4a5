#include "Assertions.h"
#include "CoRgbaColor.h"
#include "IxRollingScanlineBuffer.h"
#include "IxScanlineCache.h"

#include <atomic>
#include <complex>
#include <exception>

namespace Vn {

namespace {
// Set at package start, read by any thread after.
template <class T>
std::atomic<typename IxRollingScanlineBuffer<T>::Factory> s_rollingFactory{nullptr};
template <class T>
std::atomic<typename IxScanlineCache<T>::Factory> s_cacheFactory{nullptr};
} // namespace

template <class T>
void IxRollingScanlineBuffer<T>::setImplementationFactory(Factory factory) {
    s_rollingFactory<T>.store(factory, std::memory_order_release);
}

template <class T>
typename IxRollingScanlineBuffer<T>::Factory
IxRollingScanlineBuffer<T>::getImplementationFactory() {
    return s_rollingFactory<T>.load(std::memory_order_acquire);
}

template <class T>
IxRollingScanlineBuffer<T>::IxRollingScanlineBuffer(Vector<IxReadGuard> const& source,
                                                    GeRectangle<int> const& region, int nbScanlines,
                                                    IxPaddingPolicy<T> const& padding,
                                                    Functor* converter) {
    Factory const factory = getImplementationFactory();
    VN_ASSERT(factory != nullptr);
    _imp.reset(factory(source, region, nbScanlines, padding, converter));
    _imp->init();
}

template <class T>
IxRollingScanlineBuffer<T>::~IxRollingScanlineBuffer() {}

template <class T>
void IxScanlineCache<T>::setImplementationFactory(Factory factory) {
    s_cacheFactory<T>.store(factory, std::memory_order_release);
}

template <class T>
typename IxScanlineCache<T>::Factory IxScanlineCache<T>::getImplementationFactory() {
    return s_cacheFactory<T>.load(std::memory_order_acquire);
}

template <class T>
IxScanlineCache<T>::IxScanlineCache(GeRectangle<int> const& dst, GeRectangle<int> const& src) {
    Factory const factory = getImplementationFactory();
    VN_ASSERT(factory != nullptr);
    _imp = factory(dst, src);
    try {
        _imp->init(dst, src);
    } catch (...) {
        delete _imp;
        throw;
    }
}

template <class T>
IxScanlineCache<T>::IxScanlineCache(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                                    IxWriteGuard const& target) {
    Factory const factory = getImplementationFactory();
    VN_ASSERT(factory != nullptr);
    _imp = factory(dst, src);
    try {
        _imp->initOver(dst, src, target);
    } catch (...) {
        delete _imp;
        throw;
    }
}

template <class T>
IxScanlineCache<T>::~IxScanlineCache() noexcept(false) {
    delete _imp;
}

#define VN_INSTANTIATE_ROLLING(T)                                                                  \
    template void IxRollingScanlineBuffer<T>::setImplementationFactory(Factory);                   \
    template IxRollingScanlineBuffer<T>::Factory                                                   \
    IxRollingScanlineBuffer<T>::getImplementationFactory();                                        \
    template IxRollingScanlineBuffer<T>::IxRollingScanlineBuffer(                                  \
        Vector<IxReadGuard> const&, GeRectangle<int> const&, int, IxPaddingPolicy<T> const&,       \
        Functor*);                                                                                 \
    template IxRollingScanlineBuffer<T>::~IxRollingScanlineBuffer();

#define VN_INSTANTIATE_CACHE(T)                                                                    \
    template void IxScanlineCache<T>::setImplementationFactory(Factory);                           \
    template IxScanlineCache<T>::Factory IxScanlineCache<T>::getImplementationFactory();           \
    template IxScanlineCache<T>::IxScanlineCache(GeRectangle<int> const&,                          \
                                                 GeRectangle<int> const&);                         \
    template IxScanlineCache<T>::IxScanlineCache(GeRectangle<int> const&, GeRectangle<int> const&, \
                                                 IxWriteGuard const&);                             \
    template IxScanlineCache<T>::~IxScanlineCache() noexcept(false);

VN_INSTANTIATE_ROLLING(float)
VN_INSTANTIATE_ROLLING(CoRgbaColorTyped<float>)
VN_INSTANTIATE_CACHE(float)
VN_INSTANTIATE_CACHE(std::complex<float>)
VN_INSTANTIATE_CACHE(CoRgbaColorTyped<float>)

} // namespace Vn
