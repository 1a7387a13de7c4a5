#pragma once

#include "IpScanlinePipe.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// Grows (dilation: the largest value under the element) or shrinks (erosion: the smallest) an
// alpha pipe. Amounts are in whole pixels: a fraction is dropped. An element that reaches past
// what the input can show, from every pixel asked, gives what it gives at that reach: the
// graph works with the amount cut there.
class VN_EXPORT IpDilate final : public IpScanlinePipe1In<float> {
public:
    enum StructuringElements : std::int32_t {
        DISC = 0, // the ellipse (dx / x)^2 + (dy / y)^2 <= 1
        BOX = 1,  // |dx| <= x, |dy| <= y
    };

    // The largest amount worked with, in pixels, once cut to what the image can show: the rows
    // kept grow with the amount times the row length.
    static constexpr int MAX_AMOUNT = 1024;

    // Dilates by x and y; negative amounts erode. With one amount positive and the other
    // negative, the result dilates along one axis and then erodes along the other. An amount
    // that is NaN raises ExBase; an infinite one reaches as far as the image. Laying the graph
    // out raises ExBase when an amount, cut to the image, is still beyond MAX_AMOUNT.
    static IpScanlinePipePtr create(IpScanlinePipePtr const& pipe, int element, float x, float y);

    IpDilate(IpScanlinePipePtr const& pipe, StructuringElements element, int x, int y, bool erode);
    ~IpDilate() override;
    void setDstRegion(GeRectangle<int> const& region) override;
    // The input's grown by the amounts, not by the margins cut to the region asked.
    GeRectangle<int> getImageRegion() const override;
    char const* getName() const override { return _erode ? "Erode" : "Dilate"; }
    StructuringElements getElement() const noexcept { return _element; }
    bool erodes() const noexcept { return _erode; }

    bool readsInputsOnArrival() const noexcept override { return true; }
    void initializeProcessing() override;
    void tick(int t) override;
    void finishProcessing() override;

protected:
    void computeScanline(int y, IxScanline<float>& out) override;

private:
    void absorb(int y);
    float* keptRow(int y, int level);

    StructuringElements _element;
    bool _erode;
    int _amountX;
    int _amountY;
    // The half width of the element at each row offset 0 .. marginY.
    Vector<int> _halfWidth;
    // Per input row kept: for the box, the row's window extreme; for the disc, the windows of
    // 1, 2, 4 ... pixels, from which any window is two look-ups.
    int _nbLevels = 1;
    int _rowLength = 0;
    int _rowStride = 0;
    Vector<float> _kept;
    Vector<float> _scratch;
    Vector<float const*> _rowList;
};

// Fills holes and gaps of an alpha pipe smaller than the element: a disc dilation followed by
// an erosion of the same size (a closing).
class VN_EXPORT IpFillAlpha {
public:
    static IpScanlinePipePtr create(IpScanlinePipePtr const& pipe, int x, int y);
};

// A ramp grown out of a matte: 1 on pixels of alpha 0.5 or more, falling to 0 with the
// distance to the nearest such pixel, which is measured as sqrt((dx sx / x)^2 + (dy sy / y)^2).
// It reaches 0 at x pixels across and y pixels down when the scales are 1. The distance is
// exact (a separable Euclidean distance transform), so the result needs every row before its
// first.
class VN_EXPORT IpDistTransform final : public IpScanlinePipe1In<float> {
public:
    // x and y beyond IpDilate::MAX_AMOUNT raise ExBase.
    static IpScanlinePipePtr create(IpScanlinePipePtr const& pipe, int x, int y, float scaleX,
                                    float scaleY);

    IpDistTransform(IpScanlinePipePtr const& pipe, int x, int y, float scaleX, float scaleY);
    ~IpDistTransform() override;
    char const* getName() const override { return "DistTransform"; }
    // The ramp of the input's fill colour: 1 when it is inside, else 0.
    Color getFillColor() const override;

    void setDstRegion(GeRectangle<int> const& region) override;
    bool readsInputsOnArrival() const noexcept override { return true; }
    void initializeProcessing() override;
    void tick(int t) override;
    void finishProcessing() override;
    IxScanline<float> const& getOutputScanline(int y) const override;

protected:
    void computeScanline(int, IxScanline<float>&) override {}
    IxScanline<float> const* findAlphaRow(int y) const override;

private:
    void rowPass(int y);
    void columnPass();

    float _wx; // weight of one pixel across; infinite when x is 0
    float _wy;
    bool _done = false;
    Vector<float> _plane;                  // squared row distances, one row per source row
    Vector<float> _out;                    // the result, one row per destination row
    Vector<OPtr<IxScanline<float>>> _rows; // lines over _out
};

} // namespace Vn
