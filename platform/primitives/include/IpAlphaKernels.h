#pragma once

#include "VnExport.h"

#include <vector>

namespace Vn {

// Arithmetic on rows of alpha (float) values. Rows may overlap only where dst equals a source.
// The loops run four floats at a time, eight per pass, once dst is aligned to 16 bytes; the head
// before that, the tail, and rows not aligned to 4 bytes run one value at a time.
struct VN_EXPORT IpAlphaRows {
    // dst = max(a, b)
    static void max(float* dst, float const* a, float const* b, int n) noexcept;
    // dst = min(a, b)
    static void min(float* dst, float const* a, float const* b, int n) noexcept;
    // dst = a + (b - a) * f
    static void blend(float* dst, float const* a, float const* b, float f, int n) noexcept;
    // dst = (a + b) * 0.5
    static void average(float* dst, float const* a, float const* b, int n) noexcept;
    // dst = max(a - b, 0)
    static void difference(float* dst, float const* a, float const* b, int n) noexcept;
    // dst = 1 - a
    static void invert(float* dst, float const* a, int n) noexcept;
    // v = clamp(a * scale + offset, 0, size - 2), then the linear look-up between table[floor(v)]
    // and the entry after it. size must be at least 2.
    static void lut(float* dst, float const* a, int n, float scale, float offset,
                    float const* table, int size) noexcept;
    static float lut(float a, float scale, float offset, float const* table, int size) noexcept;

    // dst[i] = max (or min) of src[i + k] for k in [0, w): a sliding window over a row that
    // holds n + w - 1 values. Cost grows with log2(w), not w; scratch holds at least n + w values.
    static void windowMax(float* dst, float const* src, int n, int w, float* scratch) noexcept;
    static void windowMin(float* dst, float const* src, int n, int w, float* scratch) noexcept;

    // dst[i] = the extreme of rows[r][i] over r in [0, nbRows), nbRows at least 1: one pass
    // however many rows.
    static void maxOfRows(float* dst, float const* const* rows, int nbRows, int n) noexcept;
    static void minOfRows(float* dst, float const* const* rows, int nbRows, int n) noexcept;

    // dst[i] = sum over k of taps[k] * src[i + k], k in [0, nbTaps): a correlation over a row
    // that holds n + nbTaps - 1 values. Symmetric taps (taps[k] == taps[nbTaps - 1 - k]) take
    // the folded path.
    static void correlate(float* dst, float const* src, int n, float const* taps,
                          int nbTaps) noexcept;
    // dst[i] += w * src[i]: one tap of a filter that runs across rows.
    static void accumulate(float* dst, float const* src, float w, int n) noexcept;
    // dst[i] = w * src[i]
    static void scale(float* dst, float const* src, float w, int n) noexcept;
};

// The normalised taps of a Gaussian for a feather of radius r: sigma is r / 2 and the kernel
// reaches out to 1.5 r (where it has fallen to 1.1 % of its peak), rounded up to whole pixels.
class VN_EXPORT IpGauss1DKernel {
public:
    explicit IpGauss1DKernel(float radius);
    // The number of taps, odd: 2 * ceil(1.5 |r|) + 1; 1 (no change) for r = 0.
    static int getSize(float radius) noexcept;
    int getSize() const noexcept { return static_cast<int>(_taps.size()); }
    float const* getTaps() const noexcept { return _taps.data(); }

private:
    std::vector<float> _taps;
};

// A one-dimensional filter of alpha lines. The source line covers the destination's span grown
// by the margin on both sides.
class VN_EXPORT IpAlphaFilter1D {
public:
    virtual ~IpAlphaFilter1D();
    virtual int getMargin() const noexcept = 0;
    // dst[i] for i in [0, n) from src[0 .. n + 2 * margin).
    virtual void filter(float* dst, float const* src, int n) const noexcept = 0;
};

// The Gaussian feather.
class VN_EXPORT IpFeatherFilter1D final : public IpAlphaFilter1D {
public:
    explicit IpFeatherFilter1D(float radius) : _kernel(radius) {}
    int getMargin() const noexcept override { return _kernel.getSize() / 2; }
    void filter(float* dst, float const* src, int n) const noexcept override;
    IpGauss1DKernel const& getKernel() const noexcept { return _kernel; }

private:
    IpGauss1DKernel _kernel;
};

} // namespace Vn
