#include "PiPixelLoopImp.h"
#include "Assertions.h"
#include "PxRequestMgr.h"

#include <array>
#include <optional>
#include <utility>

namespace Vn {

namespace {
using Line = PiPixelLoop::Scanline;
using Color = PiPixelLoop::Color;

// The destination line writes everything it holds: no padding is ever read from it.
IxPaddingPolicy<Color> const kDestinationPadding(IxPaddingPolicy<Color>::NOOP, {0, 0, 0, 1});

template <class Loop, int N>
PiPixelLoop::Imp* create(Loop& loop, IxWriteGuard& result, PiImageModifierTypes::AffectType a) {
    return new PiPixelLoopSourcesImp<Loop, N>(loop, result, a);
}

PiPixelLoop::Imp* createGenerator(PiPixelGeneratorLoop& loop, IxWriteGuard& result) {
    return new PiPixelGeneratorLoopImp(loop, result);
}
} // namespace

GeRectangle<int> PiPixelLoopImp::getTilePixelizedROD() const {
    VN_ASSERT(_resultTile.getTile().isValid());
    return _resultTile.getPixelRegion();
}

void PiPixelGeneratorLoopImp::process(IxReadGuard const* const*) {
    GeRectangle<int> const r = getTilePixelizedROD();
    if (r.isEmpty())
        return;
    Line dst(r.xmin, r.xmax, kDestinationPadding);
    PxRequestMgr const& mgr = PxRequestMgr::getInstance();
    for (int y = r.ymin; y < r.ymax; ++y) {
        mgr.checkCancelled();
        setGlobalScanlineIndex(y);
        _loop.processScanline(dst);
        dst.writeTo(getResultTile(), y);
    }
}

template <class Loop, int N>
void PiPixelLoopSourcesImp<Loop, N>::process(IxReadGuard const* const* sources) {
    GeRectangle<int> const r = getTilePixelizedROD();
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        if (!r.isEmpty()) {
            Line dst(r.xmin, r.xmax, kDestinationPadding);
            // Lines are made once per tile; sources outside their region read as their fill.
            std::array<std::optional<Line>, N> lines;
            ((lines[I].emplace(r.xmin, r.xmax,
                               IxPaddingPolicy<Color>(IxPaddingPolicy<Color>::CONSTANT,
                                                      sources[I]->getTile().getFillColor()))),
             ...);
            PxRequestMgr const& mgr = PxRequestMgr::getInstance();
            for (int y = r.ymin; y < r.ymax; ++y) {
                mgr.checkCancelled();
                setGlobalScanlineIndex(y);
                (lines[I]->readFrom(*sources[I], y), ...);
                _loop.processScanline(dst, *lines[I]...);
                applyAffects(dst, *lines[0], y);
                dst.writeTo(getResultTile(), y);
            }
        }
        getResultTile().setFillColor(
            _loop.processFillColor(sources[I]->getTile().getFillColor()...));
    }
    (std::make_index_sequence<N>{});
}

void PiPixelLoopImp::initialize() {
    PiPixelGeneratorLoop::setImplementationFactory(&createGenerator);
    PiPixelLoopOneSource::setImplementationFactory(&create<PiPixelLoopOneSource, 1>);
    PiPixelLoopTwoSources::setImplementationFactory(&create<PiPixelLoopTwoSources, 2>);
    PiPixelLoopThreeSources::setImplementationFactory(&create<PiPixelLoopThreeSources, 3>);
    PiPixelLoopFourSources::setImplementationFactory(&create<PiPixelLoopFourSources, 4>);
    PiPixelLoopFiveSources::setImplementationFactory(&create<PiPixelLoopFiveSources, 5>);
}

void PiPixelLoopImp::finalize() {
    PiPixelGeneratorLoop::setImplementationFactory(nullptr);
    PiPixelLoopOneSource::setImplementationFactory(nullptr);
    PiPixelLoopTwoSources::setImplementationFactory(nullptr);
    PiPixelLoopThreeSources::setImplementationFactory(nullptr);
    PiPixelLoopFourSources::setImplementationFactory(nullptr);
    PiPixelLoopFiveSources::setImplementationFactory(nullptr);
}

template class PiPixelLoopSourcesImp<PiPixelLoopOneSource, 1>;
template class PiPixelLoopSourcesImp<PiPixelLoopTwoSources, 2>;
template class PiPixelLoopSourcesImp<PiPixelLoopThreeSources, 3>;
template class PiPixelLoopSourcesImp<PiPixelLoopFourSources, 4>;
template class PiPixelLoopSourcesImp<PiPixelLoopFiveSources, 5>;

} // namespace Vn
