#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "LkCounter.h"
#include "PiGrid3D.h"
#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "RCBase.h"

namespace Vn {

// How a viewer wants the interactive layer drawn: what is highlighted and within what distance of
// the pointer (pixels), how objects are drawn, and the reference grid.
class VN_EXPORT PxInteractiveOptions : public RCBase<LkCounter<int>> {
public:
    enum HighlightMode : int {
        NO_HIGHLIGHT = 0,
        HIGHLIGHT_HOVERED = 1,  // what lies under the pointer
        HIGHLIGHT_SELECTED = 2, // what is selected
    };
    enum RenderMode : int {
        SHADED = 0,
        WIREFRAME = 1,
        BOUNDING_BOX = 2,
    };

    HighlightMode getHighlightMode() const noexcept { return _highlightMode; }
    void setHighlightMode(HighlightMode mode);
    float getHighlightThreshold() const noexcept { return _highlightThreshold; }
    // Finite and 0 or more.
    void setHighlightThreshold(float pixels);
    RenderMode getRenderMode() const noexcept { return _renderMode; }
    void setRenderMode(RenderMode mode);
    PiGrid3D const& getGrid() const noexcept { return _grid; }
    void setGrid(PiGrid3D const& grid) { _grid = grid; }

private:
    HighlightMode _highlightMode = HIGHLIGHT_HOVERED;
    float _highlightThreshold = 5.0f;
    RenderMode _renderMode = SHADED;
    PiGrid3D _grid;
};

// What a node draws over the image for the user: its drawing (opaque to the engine), the pixel
// region the drawing covers, the colour to draw it in, and whether the pointer is over it.
class VN_EXPORT PxInteractiveResult : public PxBaseResult {
public:
    PxInteractiveResult() = default;
    PxInteractiveResult(RCShdPtr<RCBase<LkCounter<int>>> const& drawing,
                        GeRectangle<int> const& region, CoRgbaColorTyped<float> const& color,
                        bool highlighted)
        : _drawing(drawing), _region(region), _color(color), _highlighted(highlighted) {}

    RCShdPtr<RCBase<LkCounter<int>>> const& getDrawing() const noexcept { return _drawing; }
    GeRectangle<int> const& getRegion() const noexcept { return _region; }
    CoRgbaColorTyped<float> const& getColor() const noexcept { return _color; }
    bool isHighlighted() const noexcept { return _highlighted; }

private:
    RCShdPtr<RCBase<LkCounter<int>>> _drawing;
    GeRectangle<int> _region;
    CoRgbaColorTyped<float> _color;
    bool _highlighted = false;
};

// A node that draws an interactive layer: at a time, with the viewer's options, for a pointer
// position in nominal coordinates.
class VN_EXPORT PxInteractiveProtocol : public virtual PxNode {
public:
    virtual PxInteractiveResult getInteractiveResult(PxTimeContext const& context,
                                                     PxInteractiveOptions const& options,
                                                     GePoint<float> const& pointer) const = 0;
};

// The options are copied when the request is made: the caller may change its own meanwhile. Null
// options raise at once.
class VN_EXPORT PxInteractiveRequest final : public PxQueryRequest<PxInteractiveResult> {
public:
    PxInteractiveRequest(PxUPtr<PxInteractiveProtocol const> const& node,
                         PxTimeContext const& context,
                         RCShdPtr<PxInteractiveOptions const> const& options,
                         GePoint<float> const& pointer)
        : _node(node), _context(context), _options(*options), _pointer(pointer) {}
    void performExecute() override {
        setResult(_node->getInteractiveResult(_context, _options, _pointer));
    }
    PxInteractiveResult const& getInteractiveResult() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxInteractiveProtocol const> _node;
    PxTimeContext _context;
    PxInteractiveOptions _options;
    GePoint<float> _pointer;
};

} // namespace Vn
