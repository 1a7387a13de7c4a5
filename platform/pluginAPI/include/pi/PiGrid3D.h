#pragma once

#include "CoRgbaColor.h"
#include "VnExport.h"

namespace Vn {

// How a 3D view draws its reference grid: what it shows, how far it reaches (scene units), the
// spacing of its lines along x and y, and the colours of the axes, the lines and the markers.
class VN_EXPORT PiGrid3D {
public:
    enum Mode : int {
        FLOOR = 0, // lines on the ground plane, with the axes
        AXES = 1,  // the axes alone
        HIDDEN = 2,
    };

    PiGrid3D() = default;
    // The size must be finite and above 0, the steps above 0.
    PiGrid3D(Mode mode, float size, int xStep, int yStep, CoRgbaColorTyped<float> const& axisColor,
             CoRgbaColorTyped<float> const& gridColor, CoRgbaColorTyped<float> const& markerColor);
    PiGrid3D(PiGrid3D const&) = default;
    PiGrid3D& operator=(PiGrid3D const&) = default;
    virtual ~PiGrid3D() = default;

    Mode getMode() const noexcept { return _mode; }
    void setMode(Mode mode);
    float getSize() const noexcept { return _size; }
    void setSize(float size);
    int getXStep() const noexcept { return _xStep; }
    void setXStep(int step);
    int getYStep() const noexcept { return _yStep; }
    void setYStep(int step);
    CoRgbaColorTyped<float> const& getAxisColor() const noexcept { return _axisColor; }
    void setAxisColor(CoRgbaColorTyped<float> const& c) noexcept { _axisColor = c; }
    CoRgbaColorTyped<float> const& getGridColor() const noexcept { return _gridColor; }
    void setGridColor(CoRgbaColorTyped<float> const& c) noexcept { _gridColor = c; }
    CoRgbaColorTyped<float> const& getMarkerColor() const noexcept { return _markerColor; }
    void setMarkerColor(CoRgbaColorTyped<float> const& c) noexcept { _markerColor = c; }

    bool operator==(PiGrid3D const&) const = default;

private:
    Mode _mode = FLOOR;
    float _size = 5000.0f;
    int _xStep = 100;
    int _yStep = 100;
    CoRgbaColorTyped<float> _axisColor{0.65f, 0.44f, 0.0f, 0.75f};
    CoRgbaColorTyped<float> _gridColor{0.5f, 0.5f, 0.5f, 0.5f};
    CoRgbaColorTyped<float> _markerColor{0.45f, 0.45f, 0.5f, 0.5f};
};

} // namespace Vn
