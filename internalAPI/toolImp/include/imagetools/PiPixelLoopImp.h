#pragma once

#include "PiPixelLoop.h"

namespace Vn {

// What every pixel loop implementation holds: the result and the row being processed.
class VN_EXPORT PiPixelLoopImp : public PiPixelLoop::Imp {
public:
    int getGlobalScanlineIndex() const override { return _globalScanlineIndex; }
    // The result guard must be valid.
    GeRectangle<int> getTilePixelizedROD() const override;
    PiImageModifierTypes::AffectType affects() const override { return _affectType; }

    // Installs the factories of the public loops.
    static void initialize();
    static void finalize();

protected:
    PiPixelLoopImp(IxWriteGuard& resultTile, PiImageModifierTypes::AffectType affect) noexcept
        : _resultTile(resultTile), _affectType(affect) {}
    IxWriteGuard& getResultTile() const noexcept { return _resultTile; }
    void setGlobalScanlineIndex(int y) noexcept { _globalScanlineIndex = y; }
    // A hook for operations that change only some components; nothing here.
    void applyAffects(PiPixelLoop::Scanline&, PiPixelLoop::Scanline&, int) {}

private:
    IxWriteGuard& _resultTile;
    PiImageModifierTypes::AffectType _affectType;
    std::int32_t _globalScanlineIndex = 0;
};

// Runs a generator loop, which makes pixels from no source.
class VN_EXPORT PiPixelGeneratorLoopImp final : public PiPixelLoopImp {
public:
    PiPixelGeneratorLoopImp(PiPixelGeneratorLoop& loop, IxWriteGuard& result) noexcept
        : PiPixelLoopImp(result, PiImageModifierTypes::AFFECT_RGBA), _loop(loop) {}
    void process(IxReadGuard const* const* sources) override;

private:
    PiPixelGeneratorLoop& _loop;
};

// The loop over N sources of the public class Loop.
template <class Loop, int N>
class VN_EXPORT PiPixelLoopSourcesImp final : public PiPixelLoopImp {
public:
    PiPixelLoopSourcesImp(Loop& loop, IxWriteGuard& result,
                          PiImageModifierTypes::AffectType affect) noexcept
        : PiPixelLoopImp(result, affect), _loop(loop) {}
    void process(IxReadGuard const* const* sources) override;

private:
    Loop& _loop;
};

using PiPixelLoopOneSourceImp = PiPixelLoopSourcesImp<PiPixelLoopOneSource, 1>;
using PiPixelLoopTwoSourcesImp = PiPixelLoopSourcesImp<PiPixelLoopTwoSources, 2>;
using PiPixelLoopThreeSourcesImp = PiPixelLoopSourcesImp<PiPixelLoopThreeSources, 3>;
using PiPixelLoopFourSourcesImp = PiPixelLoopSourcesImp<PiPixelLoopFourSources, 4>;
using PiPixelLoopFiveSourcesImp = PiPixelLoopSourcesImp<PiPixelLoopFiveSources, 5>;

extern template class PiPixelLoopSourcesImp<PiPixelLoopOneSource, 1>;
extern template class PiPixelLoopSourcesImp<PiPixelLoopTwoSources, 2>;
extern template class PiPixelLoopSourcesImp<PiPixelLoopThreeSources, 3>;
extern template class PiPixelLoopSourcesImp<PiPixelLoopFourSources, 4>;
extern template class PiPixelLoopSourcesImp<PiPixelLoopFiveSources, 5>;

} // namespace Vn
