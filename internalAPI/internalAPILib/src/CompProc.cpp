#include "CompProc.h"

#include "IpScanlinePipe.h"
#include "IxGuardBase.h"

namespace Vn {

CompProc::CompProc(IxWriteGuard& result, IxScanline<CoRgbaColorTyped<float>> const& mask,
                   IxScanlineComp::CompOp op, IxScanlineComp::Correlation correlation,
                   float fgOpacity, float bgOpacity, float mix, float maskAmount)
    : PiPixelLoopTwoSources(result, PiImageModifierTypes::AFFECT_RGBA), _mask(mask),
      _comp(op, correlation, fgOpacity, bgOpacity, mix, maskAmount) {}

CompProc::~CompProc() = default;

void CompProc::processScanline(Scanline& dst, Scanline const& fg, Scanline const& bg) {
    _comp.compose(dst, fg, bg, _mask);
}

CompProc::Color CompProc::processFillColor(Color const& fg, Color const& bg) {
    return _comp.composeColor(fg, bg, _mask.getPaddingPolicy().getValue());
}

TestCompAlphaProc::TestCompAlphaProc(IxWriteGuard& result, IxScanlineComp::CompOp op,
                                     IxScanlineComp::Correlation correlation, float fgOpacity,
                                     float bgOpacity, float mix, float maskAmount)
    : _result(result), _comp(op, correlation, fgOpacity, bgOpacity, mix, maskAmount) {}

void TestCompAlphaProc::process(IxReadGuard const& fg, IxReadGuard const& bg) {
    GeRectangle<int> const r = _result.getPixelRegion();
    auto const padded = [&](IxReadGuard const& g) {
        return IxPaddingPolicy<float>(IxPaddingPolicy<float>::CONSTANT,
                                      g.getTile().getFillColor().a);
    };
    float const fgFill = fg.getTile().getFillColor().a;
    float const bgFill = bg.getTile().getFillColor().a;
    float fill = 0.0f;
    _comp.composeAlpha(&fill, &fgFill, &bgFill, 1);
    CoRgbaColorTyped<float> fillColor = bg.getTile().getFillColor();
    fillColor.a = fill;
    _result.setFillColor(fillColor);
    if (r.isEmpty())
        return;
    IxScanline<float> a(r.xmin, r.xmax, padded(fg));
    IxScanline<float> b(r.xmin, r.xmax, padded(bg));
    IxScanline<float> out(r.xmin, r.xmax, IxPaddingPolicy<float>());
    for (int y = r.ymin; y < r.ymax; ++y) {
        a.readFrom(fg, y);
        b.readFrom(bg, y);
        _comp.composeAlpha(out.getData(), a.getData(), b.getData(), out.getWidth());
        out.writeTo(_result, y);
        IpScanlinePipe::checkCancelled();
    }
}

} // namespace Vn
