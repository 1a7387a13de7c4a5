#include "PiPixelLoopImp.h"
#include "Assertions.h"
#include "IxConvertUtil.h"
#include "IxImageOps.h"
#include "PxRequestMgr.h"

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

namespace Vn {

namespace {
using Line = PiPixelLoop::Scanline;
using Color = PiPixelLoop::Color;

// The destination line writes everything it holds: no padding is ever read from it.
IxPaddingPolicy<Color> const kDestinationPadding(IxPaddingPolicy<Color>::NOOP, {0, 0, 0, 1});

bool holdsLines(IxGuardBase const& g) {
    return g.holdsMemory() && g.getFirst() && g.getPixelFormat() == Line::PIXEL_FORMAT;
}

ImPixelFormat imFormat(IxGuardBase const& g) {
    return ImPixelFormat(g.getPixelFormat().getComps(), g.getPixelFormat().getDepth());
}

// The result's row y: the tile's own memory when it holds float RGBA, else a line of its own
// that is written to the tile after.
class DestinationRow {
public:
    DestinationRow(IxWriteGuard& result, GeRectangle<int> const& r)
        : _result(result), _x0(r.xmin), _x1(r.xmax), _inPlace(holdsLines(result)),
          _format(imFormat(result)), _view(nullptr, r.xmin, r.xmin, kDestinationPadding) {
        if (!_inPlace)
            _own.emplace(r.xmin, r.xmax, kDestinationPadding);
    }
    Line& at(int y) {
        if (!_inPlace)
            return *_own;
        _view.rebuild(_result.getPixel<Color>(_x0, y), _x0, _x1);
        return _view;
    }
    // The line spans the result's row: converted straight into it.
    void finish(int y) const {
        if (!_inPlace && _result.holdsMemory())
            IxConvertUtil::writeTo(_result.getAddress(_x0, y), _own->getData(), _x1 - _x0, _format);
    }

private:
    IxWriteGuard& _result;
    int _x0;
    int _x1;
    bool _inPlace;
    ImPixelFormat _format;
    Line _view;
    std::optional<Line> _own;
};

// A source's row y over [x0, x1): its own memory when it holds float RGBA over the whole row
// and the result is not written over it, else a copy padded with its fill colour.
class SourceRow {
public:
    SourceRow(IxReadGuard const& source, GeRectangle<int> const& r,
              std::pair<std::uintptr_t, std::uintptr_t> result)
        : _source(source), _x0(r.xmin), _x1(r.xmax),
          _padding(IxPaddingPolicy<Color>::CONSTANT, source.getTile().getFillColor()),
          _view(nullptr, r.xmin, r.xmin, _padding) {
        GeRectangle<int> const& s = source.getPixelRegion();
        auto const span = ipByteSpan(source);
        bool const covers = source.holdsMemory() && s.xmin <= _x0 && _x1 <= s.xmax;
        _inPlace = covers && holdsLines(source) &&
                   (span.second <= result.first || result.second <= span.first);
        // Rows of other formats that the source holds whole convert in one call, without
        // the padding walk.
        _convert = covers && !holdsLines(source);
    }
    Line& at(int y) {
        GeRectangle<int> const& s = _source.getPixelRegion();
        bool const held = s.ymin <= y && y < s.ymax;
        if (_inPlace && held) {
            _view.rebuild(const_cast<Color*>(_source.getPixel<Color>(_x0, y)), _x0, _x1);
            return _view;
        }
        if (!_own)
            _own.emplace(_x0, _x1, _padding);
        if (_convert && held)
            IxConvertUtil::readFrom(_own->getData(), _source.getAddress(_x0, y), _x1 - _x0,
                                    imFormat(_source));
        else
            _own->readFrom(_source, y);
        return *_own;
    }

private:
    IxReadGuard const& _source;
    int _x0;
    int _x1;
    IxPaddingPolicy<Color> _padding;
    bool _inPlace;
    bool _convert;
    Line _view;
    std::optional<Line> _own;
};

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
    DestinationRow dst(getResultTile(), r);
    PxRequestMgr const& mgr = PxRequestMgr::getInstance();
    for (int y = r.ymin; y < r.ymax; ++y) {
        mgr.checkCancelled();
        setGlobalScanlineIndex(y);
        _loop.processScanline(dst.at(y));
        dst.finish(y);
    }
}

template <class Loop, int N>
void PiPixelLoopSourcesImp<Loop, N>::process(IxReadGuard const* const* sources) {
    GeRectangle<int> const r = getTilePixelizedROD();
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        if (!r.isEmpty()) {
            DestinationRow dst(getResultTile(), r);
            auto const result = ipByteSpan(getResultTile());
            std::array<std::optional<SourceRow>, N> rows;
            (rows[I].emplace(*sources[I], r, result), ...);
            PxRequestMgr const& mgr = PxRequestMgr::getInstance();
            for (int y = r.ymin; y < r.ymax; ++y) {
                mgr.checkCancelled();
                setGlobalScanlineIndex(y);
                Line& out = dst.at(y);
                std::array<Line*, N> const in{&rows[I]->at(y)...};
                _loop.processScanline(out, *in[I]...);
                applyAffects(out, *in[0], y);
                dst.finish(y);
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
