#include "PiGrid3D.h"

#include "Assertions.h"

#include <cmath>

namespace Vn {

PiGrid3D::PiGrid3D(Mode mode, float size, int xStep, int yStep,
                   CoRgbaColorTyped<float> const& axisColor,
                   CoRgbaColorTyped<float> const& gridColor,
                   CoRgbaColorTyped<float> const& markerColor)
    : _axisColor(axisColor), _gridColor(gridColor), _markerColor(markerColor) {
    setMode(mode);
    setSize(size);
    setXStep(xStep);
    setYStep(yStep);
}

void PiGrid3D::setMode(Mode mode) {
    VN_ASSERT(mode >= FLOOR && mode <= HIDDEN);
    _mode = mode;
}

void PiGrid3D::setSize(float size) {
    VN_ASSERT(std::isfinite(size) && size > 0.0f);
    _size = size;
}

// A step of 0 would draw lines without end.
void PiGrid3D::setXStep(int step) {
    VN_ASSERT(step > 0);
    _xStep = step;
}

void PiGrid3D::setYStep(int step) {
    VN_ASSERT(step > 0);
    _yStep = step;
}

} // namespace Vn
