#pragma once

#include "GeRectangle.h"
#include "VnExport.h"

namespace Vn {

class IxWriteGuard;
class IxWriteGuardProxy;
template <class T>
class IxScanline;

// Column access for a separable two-pass operation. Rows are written into the horizontal buffer
// (the x span of dst over the rows of src); then each column is handed out as a contiguous source
// line of src's height and a destination line of dst's height, and the results land in the
// vertical buffer (dst). Instantiated for float, std::complex<float> and CoRgbaColorTyped<float>;
// the implementation comes from the engine library.
//
// Order: construct, fill getHorizontalBuffer(), then while hasNext(): getNext() and process the
// column; then flush() once, and read getVerticalBuffer(). A run cut short calls discard()
// instead of flush().
template <class T>
class VN_EXPORT IxScanlineCache {
public:
    class Imp {
    public:
        // May raise when the calls were out of order.
        virtual ~Imp() noexcept(false) = default;
        virtual void init(GeRectangle<int> const& dst, GeRectangle<int> const& src) = 0;
        // init with the vertical buffer over the pixels of dst in target, which holds them in
        // this cache's format: the results land in the target itself.
        virtual void initOver(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                              IxWriteGuard const& target) = 0;
        virtual IxWriteGuardProxy const& getHorizontalBuffer() = 0;
        virtual IxWriteGuard getVerticalBuffer() = 0;
        virtual bool hasNext() const = 0;
        virtual void getNext(IxScanline<T>*& dst, IxScanline<T>*& src) = 0;
        virtual void flush() = 0;
        // Lets the columns handed out go unwritten; the cache may then be destroyed.
        virtual void discard() noexcept = 0;
    };

    using Factory = Imp* (*)(GeRectangle<int> const& dst, GeRectangle<int> const& src);

    static void setImplementationFactory(Factory factory);
    static Factory getImplementationFactory();

    IxScanlineCache(GeRectangle<int> const& dst, GeRectangle<int> const& src);
    // The vertical buffer lies over the pixels of dst in target, which must hold them in the
    // cache's format (ipHoldsPixels): flush() then writes the results there.
    IxScanlineCache(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                    IxWriteGuard const& target);
    // Raises when columns were handed out and not flushed, unless an exception is in flight.
    ~IxScanlineCache() noexcept(false);
    IxScanlineCache(IxScanlineCache const&) = delete;
    IxScanlineCache& operator=(IxScanlineCache const&) = delete;

    IxWriteGuardProxy const& getHorizontalBuffer() { return _imp->getHorizontalBuffer(); }
    // An IxWriteGuard; written as a template so that this header needs only its declaration.
    template <class Self = IxScanlineCache>
    auto getVerticalBuffer() {
        return static_cast<Self*>(this)->_imp->getVerticalBuffer();
    }
    bool hasNext() const { return _imp->hasNext(); }
    void getNext(IxScanline<T>*& dst, IxScanline<T>*& src) { _imp->getNext(dst, src); }
    void flush() { _imp->flush(); }
    // For a run cut short: no column is written back, nothing is allocated.
    void discard() noexcept { _imp->discard(); }

private:
    Imp* _imp;
};

} // namespace Vn
