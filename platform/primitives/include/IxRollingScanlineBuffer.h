#pragma once

#include "GeRectangle.h"
#include "IxPaddingPolicy.h"
#include "OPtr.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class IxReadGuard;
template <class T>
class IxScanline;

// n consecutive rows of an image, for a vertical filter of n taps: each getNext() moves one row
// down and gives the n rows, oldest first. Every source row is read once. Instantiated for float
// and CoRgbaColorTyped<float>; the implementation comes from the engine library.
template <class T>
class VN_EXPORT IxRollingScanlineBuffer {
public:
    // Turns a row as read into a row of the buffer.
    class Functor {
    public:
        virtual ~Functor() = default;
        virtual void operator()(IxScanline<T>& dst, IxScanline<T> const& src) = 0;
    };

    class Imp {
    public:
        virtual ~Imp() = default;
        virtual void init() = 0;
        virtual IxScanline<T> const* const* getNext() = 0;
    };

    using Factory = Imp* (*)(Vector<IxReadGuard> const& source, GeRectangle<int> const& region,
                             int nbScanlines, IxPaddingPolicy<T> const& padding,
                             Functor* converter);

    static void setImplementationFactory(Factory factory);
    static Factory getImplementationFactory();

    // Reads the rows of region from the guards, which must outlive this object; converter, when
    // given, must too. A source of height h gives h - nbScanlines + 1 calls of getNext().
    IxRollingScanlineBuffer(Vector<IxReadGuard> const& source, GeRectangle<int> const& region,
                            int nbScanlines, IxPaddingPolicy<T> const& padding,
                            Functor* converter = nullptr);
    ~IxRollingScanlineBuffer();
    IxRollingScanlineBuffer(IxRollingScanlineBuffer const&) = delete;
    IxRollingScanlineBuffer& operator=(IxRollingScanlineBuffer const&) = delete;

    IxScanline<T> const* const* getNext() { return _imp->getNext(); }

private:
    OPtr<Imp> _imp;
};

} // namespace Vn
