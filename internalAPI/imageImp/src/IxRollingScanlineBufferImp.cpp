#include "IxRollingScanlineBufferImp.h"
#include "Assertions.h"
#include "IxGuardBase.h"

namespace Vn {

template <class T>
IxRollingScanlineBufferImp<T>::IxRollingScanlineBufferImp(Vector<IxReadGuard> const& source,
                                                          GeRectangle<int> const& srcRegion,
                                                          int nbScanlines,
                                                          IxPaddingPolicy<T> const& padding,
                                                          Functor* converter)
    : _source(source), _srcRegion(srcRegion), _currentY(srcRegion.ymin), _converter(converter),
      _nbScanlines(nbScanlines), _padding(padding) {
    VN_ASSERT(0 < _nbScanlines && _nbScanlines <= _srcRegion.getHeight());
}

template <class T>
IxRollingScanlineBufferImp<T>::~IxRollingScanlineBufferImp() = default;

template <class T>
void IxRollingScanlineBufferImp<T>::init() {
    VN_ASSERT(_scanlinePool.isNull() && _rollingBuffer.isNull() && _inputReader.isNull());
    int const n = _nbScanlines;
    _scanlinePool = APtr<OPtr<IxScanline<T>>>(static_cast<std::size_t>(n));
    _rollingBuffer = APtr<IxScanline<T>*>(static_cast<std::size_t>(n));
    if (_converter)
        _inputReader.reset(new IxScanline<T>(_srcRegion.xmin, _srcRegion.xmax, _padding));
    for (int i = 1; i < n; ++i) {
        _scanlinePool[i - 1].reset(new IxScanline<T>(_srcRegion.xmin, _srcRegion.xmax, _padding));
        readRow(i);
    }
    _scanlinePool[n - 1].reset(new IxScanline<T>(_srcRegion.xmin, _srcRegion.xmax, _padding));
}

template <class T>
void IxRollingScanlineBufferImp<T>::readRow(int slot) {
    // clang-format off
    VN_ASSERT(_srcRegion.getSlab( 1 ).contains( _currentY ));
    // clang-format on
    IxScanline<T>* line = _scanlinePool[_poolIndex].get();
    _rollingBuffer[slot] = line;
    if (_converter) {
        _inputReader->readFrom(_source, _currentY);
        (*_converter)(*line, *_inputReader);
    } else {
        line->readFrom(_source, _currentY);
    }
    ++_currentY;
    _poolIndex = (_poolIndex + 1) % _nbScanlines;
}

template <class T>
IxScanline<T> const* const* IxRollingScanlineBufferImp<T>::getNext() {
    // clang-format off
    VN_ASSERT(!_scanlinePool.isNull() && !_rollingBuffer.isNull() && _srcRegion.getSlab( 1 ).contains( _currentY ));
    // clang-format on
    int const n = _nbScanlines;
    IxScanline<T>* first = _rollingBuffer[0];
    for (int i = 0; i + 1 < n; ++i)
        _rollingBuffer[i] = _rollingBuffer[i + 1];
    _rollingBuffer[n - 1] = first;
    readRow(n - 1);
    return _rollingBuffer.get();
}

template <class T>
typename IxRollingScanlineBuffer<T>::Imp*
IxRollingScanlineBufferImp<T>::create(Vector<IxReadGuard> const& source,
                                      GeRectangle<int> const& srcRegion, int nbScanlines,
                                      IxPaddingPolicy<T> const& padding, Functor* converter) {
    return new IxRollingScanlineBufferImp(source, srcRegion, nbScanlines, padding, converter);
}

template <class T>
void IxRollingScanlineBufferImp<T>::initialize() {
    IxRollingScanlineBuffer<T>::setImplementationFactory(&create);
}

template <class T>
void IxRollingScanlineBufferImp<T>::finalize() {}

template class IxRollingScanlineBufferImp<float>;
template class IxRollingScanlineBufferImp<CoRgbaColorTyped<float>>;

} // namespace Vn
