#pragma once

#include "GeRectangle.h"
#include "IxPaddingPolicy.h"
#include "IxRect.h"
#include "IxRollingScanlineBuffer.h"
#include "IxScanline.h"
#include "OPtr.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class IxReadGuard;

// n rows held at once over a rotating pool of n lines: moving down a row moves pointers only,
// and each source row is read, and converted, once.
template <class T>
class VN_EXPORT IxRollingScanlineBufferImp : public IxRollingScanlineBuffer<T>::Imp {
public:
    using Functor = typename IxRollingScanlineBuffer<T>::Functor;

    IxRollingScanlineBufferImp(Vector<IxReadGuard> const& source, GeRectangle<int> const& srcRegion,
                               int nbScanlines, IxPaddingPolicy<T> const& padding,
                               Functor* converter);
    ~IxRollingScanlineBufferImp() override;

    void init() override;
    // After the k-th call (from 0), line j holds row ymin + k + j.
    IxScanline<T> const* const* getNext() override;

    static void initialize();
    static void finalize();

private:
    static typename IxRollingScanlineBuffer<T>::Imp*
    create(Vector<IxReadGuard> const& source, GeRectangle<int> const& srcRegion, int nbScanlines,
           IxPaddingPolicy<T> const& padding, Functor* converter);
    void readRow(int slot);

    Vector<IxReadGuard> const& _source;
    IxRect _srcRegion;
    int _currentY;
    Functor* _converter;
    APtr<OPtr<IxScanline<T>>> _scanlinePool;
    int _nbScanlines;
    int _poolIndex = 0;
    APtr<IxScanline<T>*> _rollingBuffer;
    OPtr<IxScanline<T>> _inputReader;
    IxPaddingPolicy<T> _padding;
};

extern template class IxRollingScanlineBufferImp<float>;
extern template class IxRollingScanlineBufferImp<CoRgbaColorTyped<float>>;

} // namespace Vn
