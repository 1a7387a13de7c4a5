#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "IxGuardBase.h"
#include "IxScanline.h"
#include "OPtr.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// Constants of image-modifying tools.
struct VN_EXPORT PiImageModifierTypes {
    // Which components of its image a tool changes.
    enum AffectType : std::int32_t { AFFECT_RGBA = 1, AFFECT_RGB = 2, AFFECT_ALPHA = 4 };
};

// The common way of writing an image operation: the operation turns source lines into a
// destination line, and source fill colours into the result's fill colour; the loop walks the
// rows of the result tile, reads the sources padded with their fill colours, writes the result
// and checks for cancellation between rows. Arithmetic is on float RGBA whatever the formats.
//
// The result's fill colour is set on the tile held by the result guard: a node returns
// `guard.getTile()`.
class VN_EXPORT PiPixelLoop {
public:
    using Color = CoRgbaColorTyped<float>;
    using Scanline = IxScanline<Color>;

    class VN_EXPORT Imp {
    public:
        virtual ~Imp();
        // The absolute row being processed.
        virtual int getGlobalScanlineIndex() const = 0;
        // The pixel region of the result tile.
        virtual GeRectangle<int> getTilePixelizedROD() const = 0;
        // The source guards, in source order.
        virtual void process(IxReadGuard const* const* sources) = 0;
        virtual PiImageModifierTypes::AffectType affects() const = 0;
    };

    virtual ~PiPixelLoop();
    int getGlobalScanlineIndex() const { return _imp->getGlobalScanlineIndex(); }
    GeRectangle<int> getTilePixelizedROD() const { return _imp->getTilePixelizedROD(); }
    PiImageModifierTypes::AffectType affects() const { return _imp->affects(); }

protected:
    PiPixelLoop() noexcept = default;
    PiPixelLoop(PiPixelLoop const&) = delete;
    PiPixelLoop& operator=(PiPixelLoop const&) = delete;
    OPtr<Imp> _imp;
};

// A loop without sources: it only writes.
class VN_EXPORT PiPixelGeneratorLoop : public PiPixelLoop {
public:
    using Factory = Imp* (*)(PiPixelGeneratorLoop& loop, IxWriteGuard& result);
    static void setImplementationFactory(Factory factory);

    explicit PiPixelGeneratorLoop(IxWriteGuard& result);
    void process() { _imp->process(nullptr); }
    virtual void processScanline(Scanline& dst) = 0;
};

namespace PiPixelLoopDetail {
template <class>
using Guard = IxReadGuard;
template <class>
using FillColor = CoRgbaColorTyped<float>;
} // namespace PiPixelLoopDetail

// A loop over one source line per type in Sources (each one Scanline). Derived is the public
// loop class, whose factory builds the implementation.
template <class Derived, class... Sources>
class VN_EXPORT PiPixelLoopSources : public PiPixelLoop {
public:
    static constexpr int kNbSources = sizeof...(Sources);
    using Factory = Imp* (*)(Derived& loop, IxWriteGuard& result,
                             PiImageModifierTypes::AffectType affect);
    static void setImplementationFactory(Factory factory);
    static Factory getImplementationFactory();

    void process(PiPixelLoopDetail::Guard<Sources> const&... sources) {
        IxReadGuard const* const guards[] = {&sources...};
        _imp->process(guards);
    }
    virtual void processScanline(Scanline& dst, Sources const&... sources) = 0;
    virtual Color processFillColor(PiPixelLoopDetail::FillColor<Sources> const&... fills) = 0;

protected:
    PiPixelLoopSources(IxWriteGuard& result, PiImageModifierTypes::AffectType affect);
};

#define VN_PIXEL_LOOP_CLASS(Name, ...)                                                             \
    class VN_EXPORT Name : public PiPixelLoopSources<Name, __VA_ARGS__> {                          \
    public:                                                                                        \
        Name(IxWriteGuard& result, PiImageModifierTypes::AffectType affect)                        \
            : PiPixelLoopSources(result, affect) {}                                                \
    }
using PiLine = PiPixelLoop::Scanline;
VN_PIXEL_LOOP_CLASS(PiPixelLoopOneSource, PiLine);
VN_PIXEL_LOOP_CLASS(PiPixelLoopTwoSources, PiLine, PiLine);
VN_PIXEL_LOOP_CLASS(PiPixelLoopThreeSources, PiLine, PiLine, PiLine);
VN_PIXEL_LOOP_CLASS(PiPixelLoopFourSources, PiLine, PiLine, PiLine, PiLine);
VN_PIXEL_LOOP_CLASS(PiPixelLoopFiveSources, PiLine, PiLine, PiLine, PiLine, PiLine);
#undef VN_PIXEL_LOOP_CLASS

extern template class PiPixelLoopSources<PiPixelLoopOneSource, PiLine>;
extern template class PiPixelLoopSources<PiPixelLoopTwoSources, PiLine, PiLine>;
extern template class PiPixelLoopSources<PiPixelLoopThreeSources, PiLine, PiLine, PiLine>;
extern template class PiPixelLoopSources<PiPixelLoopFourSources, PiLine, PiLine, PiLine, PiLine>;
extern template class PiPixelLoopSources<PiPixelLoopFiveSources, PiLine, PiLine, PiLine, PiLine,
                                         PiLine>;

} // namespace Vn
