#pragma once

// The nodes behind IpScanlinePipeUtils.

#include "IpAlphaKernels.h"
#include "IpScanlinePipe.h"
#include "IxScanlineCache.h"

namespace Vn {

// Per-pixel operations of two alpha pipes; the fill colour is the first input's with the
// operation applied to the alphas.
class MaxAlpha final : public IpScanlinePipe2In<float> {
public:
    MaxAlpha(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b) : IpScanlinePipe2In(a, b) {}
    char const* getName() const override { return "MaxAlpha"; }
    Color getFillColor() const override;

protected:
    void computeScanline(int y, IxScanline<float>& out) override;
};

class BlendAlpha final : public IpScanlinePipe2In<float> {
public:
    BlendAlpha(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b, float f)
        : IpScanlinePipe2In(a, b), _f(f) {}
    char const* getName() const override { return "BlendAlpha"; }
    Color getFillColor() const override;
    float getFactor() const noexcept { return _f; }

protected:
    void computeScanline(int y, IxScanline<float>& out) override;

private:
    float _f;
};

class AverageAlpha final : public IpScanlinePipe2In<float> {
public:
    AverageAlpha(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b)
        : IpScanlinePipe2In(a, b) {}
    char const* getName() const override { return "AverageAlpha"; }
    Color getFillColor() const override;

protected:
    void computeScanline(int y, IxScanline<float>& out) override;
};

class DiffAlpha final : public IpScanlinePipe2In<float> {
public:
    DiffAlpha(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b) : IpScanlinePipe2In(a, b) {}
    char const* getName() const override { return "DiffAlpha"; }
    Color getFillColor() const override;

protected:
    void computeScanline(int y, IxScanline<float>& out) override;
};

class InvertAlpha final : public IpScanlinePipe1In<float> {
public:
    explicit InvertAlpha(IpScanlinePipePtr const& a) : IpScanlinePipe1In(a, 0, 0) {}
    char const* getName() const override { return "InvertAlpha"; }
    Color getFillColor() const override;

protected:
    void computeScanline(int y, IxScanline<float>& out) override;
};

class ScanlineLut final : public IpScanlinePipe1In<float> {
public:
    ScanlineLut(IpScanlinePipePtr const& a, float scale, float offset, Vector<float> table);
    char const* getName() const override { return "ScanlineLut"; }
    Color getFillColor() const override;

protected:
    void computeScanline(int y, IxScanline<float>& out) override;

private:
    float _scale;
    float _offset;
    Vector<float> _table;
};

// The alpha of a colour pipe.
class ExtractAlpha final : public IpScanlinePipeOutput<float> {
public:
    explicit ExtractAlpha(IpScanlinePipePtr const& rgba);
    char const* getName() const override { return "ExtractAlpha"; }
    Color getFillColor() const override { return _inputs[0]->getFillColor(); }

protected:
    void computeScanline(int y, IxScanline<float>& out) override;
};

// The colour of the first input with the alpha of the second.
class InsertAlpha final : public IpScanlinePipeOutput<CoRgbaColorTyped<float>> {
public:
    InsertAlpha(IpScanlinePipePtr const& rgba, IpScanlinePipePtr const& alpha);
    char const* getName() const override { return "InsertAlpha"; }
    Color getFillColor() const override;

protected:
    void computeScanline(int y, IxScanline<Color>& out) override;
};

// The separable Gaussian feather: across as each row comes in, down through the scanline cache
// once all have. No row leaves before the last has come in; a run cut short writes nothing.
class BlurAlpha final : public IpScanlinePipeOutput<float> {
public:
    BlurAlpha(IpScanlinePipePtr const& a, float x, float y);
    ~BlurAlpha() override;
    char const* getName() const override { return "BlurAlpha"; }
    Color getFillColor() const override { return _inputs[0]->getFillColor(); }

    void setDstRegion(GeRectangle<int> const& region) override;
    bool readsInputsOnArrival() const noexcept override { return true; }
    void initializeProcessing() override;
    void tick(int t) override;
    void finishProcessing() override;
    void setDirectTarget(IxWriteGuard const* target) noexcept override { _target = target; }

protected:
    void computeScanline(int, IxScanline<float>&) override {}
    IxScanline<float> const* findAlphaRow(int y) const override;

private:
    void inputIsAvailable();
    void releaseCache() noexcept;

    IpFeatherFilter1D _horizontal;
    IpFeatherFilter1D _vertical;
    int _nextRow = 0;
    bool _done = false;
    bool _flushed = false;
    OPtr<IxScanlineCache<float>> _cache;
    Vector<OPtr<IxScanline<float>>> _rows;
    IxScanline<float> _hRow; // over the horizontal buffer, moved row by row
    IxWriteGuard const* _target = nullptr;
};

} // namespace Vn
