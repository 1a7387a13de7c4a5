#pragma once

#include "IxScanlineComp.h"
#include "PiPixelLoop.h"
#include "VnExport.h"

namespace Vn {

// Composites two tiles into a third through the pixel loop, mixed by a mask line.
class VN_EXPORT CompProc final : public PiPixelLoopTwoSources {
public:
    // The mask must cover the result's columns and outlive the loop.
    CompProc(IxWriteGuard& result, IxScanline<CoRgbaColorTyped<float>> const& mask,
             IxScanlineComp::CompOp op, IxScanlineComp::Correlation correlation, float fgOpacity,
             float bgOpacity, float mix, float maskAmount);
    ~CompProc() override;
    void processScanline(Scanline& dst, Scanline const& fg, Scanline const& bg) override;
    Color processFillColor(Color const& fg, Color const& bg) override;

private:
    IxScanline<CoRgbaColorTyped<float>> const& _mask;
    IxScanlineComp _comp;
};

// Composites the alphas of two tiles into a third, row by row, without the pixel loop.
class VN_EXPORT TestCompAlphaProc {
public:
    TestCompAlphaProc(IxWriteGuard& result, IxScanlineComp::CompOp op,
                      IxScanlineComp::Correlation correlation, float fgOpacity, float bgOpacity,
                      float mix, float maskAmount);
    void process(IxReadGuard const& fg, IxReadGuard const& bg);

private:
    IxWriteGuard& _result;
    IxScanlineComp _comp;
};

} // namespace Vn
