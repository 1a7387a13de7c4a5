#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "IxPaddingPolicy.h"
#include "IxPixelFormat.h"
#include "Vector.h"
#include "VnExport.h"

#include <complex>

namespace Vn {

class IxReadGuard;
class IxWriteGuard;

// One line of pixels of type T over the interval [x0, x1) of absolute coordinates, either in
// storage of its own or over memory someone else holds (a row of a guard, a scratch buffer).
// Reading from tiles converts their format to T and pads what they don't cover by the line's
// padding policy. Instantiated for float (an alpha line), std::complex<float> and
// CoRgbaColorTyped<float>.
template <class T>
class VN_EXPORT IxScanline {
public:
    // The format of tiles whose pixels are T.
    static IxPixelFormat const PIXEL_FORMAT;

    IxScanline() noexcept = default;
    // A line with storage of its own.
    IxScanline(int x0, int x1, IxPaddingPolicy<T> const& padding);
    // A line over memory held elsewhere: element x lies at data[x - x0].
    IxScanline(T* data, int x0, int x1, IxPaddingPolicy<T> const& padding) noexcept;
    // A line over row y of a guard in PIXEL_FORMAT; [x0, x1) must lie in the tile.
    IxScanline(IxWriteGuard const& guard, int y, int x0, int x1, IxPaddingPolicy<T> const& padding);
    IxScanline(IxScanline const&) = delete;
    IxScanline& operator=(IxScanline const&) = delete;
    ~IxScanline();

    // Moves the line to another interval over the same memory, element x0 at its start. A line
    // with storage of its own must fit in it.
    void rebuild(int x0, int x1);
    // Moves the line over other memory; only for lines without storage of their own.
    void rebuild(T* data, int x0, int x1) noexcept;

    T* getData() noexcept { return _data; }
    T const* getData() const noexcept { return _data; }
    // Element x, in absolute coordinates.
    T& operator[](int x) noexcept { return _data[x - _x0]; }
    T const& operator[](int x) const noexcept { return _data[x - _x0]; }
    int getX0() const noexcept { return _x0; }
    int getX1() const noexcept { return _x1; }
    int getWidth() const noexcept { return _x1 - _x0; }
    IxPaddingPolicy<T> const& getPaddingPolicy() const noexcept { return _padding; }
    void setPaddingPolicy(IxPaddingPolicy<T> const& padding) noexcept { _padding = padding; }

    // Fills the line with row y of the tiles of the guards, which must not overlap. What lies
    // outside their bounding region follows the padding policy; a hole inside it gets the
    // policy's value.
    void readFrom(Vector<IxReadGuard> const& source, int y);
    void readFrom(IxReadGuard const& source, int y);
    // Writes the line into row y of the tile, where both exist, converting to its format.
    void writeTo(IxWriteGuard const& target, int y) const;

private:
    void readFrom(IxReadGuard const* const* guards, int nbGuards, int y);

    T* _data = nullptr;
    int _x0 = 0;
    int _x1 = 0;
    int _capacity = 0; // elements of storage of its own
    IxPaddingPolicy<T> _padding;
};

// \cond The formats, defined with the instantiations.
template <>
IxPixelFormat const IxScanline<float>::PIXEL_FORMAT;
template <>
IxPixelFormat const IxScanline<std::complex<float>>::PIXEL_FORMAT;
template <>
IxPixelFormat const IxScanline<CoRgbaColorTyped<float>>::PIXEL_FORMAT;
// \endcond

extern template class IxScanline<float>;
extern template class IxScanline<std::complex<float>>;
extern template class IxScanline<CoRgbaColorTyped<float>>;

} // namespace Vn
