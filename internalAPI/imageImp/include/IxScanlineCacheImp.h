#pragma once

#include "GeRectangle.h"
#include "IxGuardBase.h"
#include "IxRect.h"
#include "IxScanline.h"
#include "IxScanlineCache.h"
#include "IxTileManip.h"
#include "IxWriteGuardProxy.h"
#include "OPtr.h"
#include "VnExport.h"

#include <complex>

namespace Vn {

// Columns through a scratch of B + 1 contiguous lines: a block of B columns of the horizontal
// buffer is transposed into lines 1 to B, column k is handed out as source line k + 1 and
// destination line k, and the block's results are transposed back into the vertical buffer.
// B columns are 128 bytes of a row. The two buffers share one block of memory: a block's
// columns are written back only after they have all been read.
template <class T>
class VN_EXPORT IxScanlineCacheImp : public IxScanlineCache<T>::Imp, private IxTileManip {
public:
    static constexpr int BLOCK_WIDTH = static_cast<int>(128 / sizeof(T));

    IxScanlineCacheImp(GeRectangle<int> const& dst, GeRectangle<int> const& src);
    // Raises when columns were handed out and not flushed, unless an exception is in flight.
    ~IxScanlineCacheImp() noexcept(false) override;

    void init(GeRectangle<int> const& dst, GeRectangle<int> const& src) override;
    void initOver(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                  IxWriteGuard const& target) override;
    IxWriteGuardProxy const& getHorizontalBuffer() override;
    IxWriteGuard getVerticalBuffer() override;
    bool hasNext() const override;
    void getNext(IxScanline<T>*& dst, IxScanline<T>*& src) override;
    void flush() override;
    void discard() noexcept override;

    static void initialize();
    static void finalize();

    // How far ahead, in rows, a block read prefetches, and into which cache level: 0 not
    // kept, 1 all levels, 2 level 2 and out, 3 level 3 and out. Process-wide; defaults 3 and 1.
    static void setPrefetchHint(int hint);
    static void setPrefetchDistance(int rows);
    static int getPrefetchHint();
    static int getPrefetchDistance();

private:
    static typename IxScanlineCache<T>::Imp* create(GeRectangle<int> const& dst,
                                                    GeRectangle<int> const& src);
    // The horizontal buffer in memory of its own, or in memory shared with the vertical one.
    void setHorizontal(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                       unsigned int minSize, RCShdPtr<IxMemory>* shared);
    void buildScratch();
    void readBlock();
    void writeBlock();
    // writeBlock then readBlock of the next block, in one walk down the rows when it can.
    bool moveBlocksTogether();
    // Prefetches eight rows from i of the block written at xw and the block read at xr.
    void prefetchAhead(int xw, int xr, int i) const;
    // How far ahead, in rows, the walk over a target asks for its rows.
    static constexpr int kAheadRows = 16;
    T* scratchLine(int k) const;

    APtr<OPtr<IxScanline<T>>> _scancolumns;
    IxInterval _dstRows;
    IxInterval _srcRows;
    IxWriteGuard _scratch;
    IxWriteGuardProxy _horizontal;
    IxWriteGuardProxy _vertical;
    bool _flushCalled = false;
    bool _overTarget = false; // the vertical buffer lies over the caller's target
    int _nbAccumulated = 0;
    int _currentX;
    bool _firstBlockToRead = true;
    int _xEnd;                  // the horizontal buffer's x maximum
    std::ptrdiff_t _lineStride; // scratch line stride, in elements
};

extern template class IxScanlineCacheImp<float>;
extern template class IxScanlineCacheImp<std::complex<float>>;
extern template class IxScanlineCacheImp<CoRgbaColorTyped<float>>;

} // namespace Vn
