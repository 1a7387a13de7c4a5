#include "PxInteractiveProtocol.h"

#include <cmath>

namespace Vn {

void PxInteractiveOptions::setHighlightMode(HighlightMode mode) {
    VN_ASSERT(mode >= NO_HIGHLIGHT && mode <= HIGHLIGHT_SELECTED);
    _highlightMode = mode;
}

void PxInteractiveOptions::setHighlightThreshold(float pixels) {
    VN_ASSERT(std::isfinite(pixels) && pixels >= 0.0f);
    _highlightThreshold = pixels;
}

void PxInteractiveOptions::setRenderMode(RenderMode mode) {
    VN_ASSERT(mode >= SHADED && mode <= BOUNDING_BOX);
    _renderMode = mode;
}

} // namespace Vn
