#pragma once

#include "IxPixelFormat.h"
#include "Rational.h"
#include "VnExport.h"

namespace Vn {

// The format of a node's images: the pixels' format and the frame rate of the sequence.
class VN_EXPORT PxImageFormat {
public:
    // The format of nothing: an invalid pixel format and a rate of 0.
    static PxImageFormat const INVALID_FORMAT;

    PxImageFormat() noexcept = default;
    PxImageFormat(IxPixelFormat const& pixelFormat, Rational const& frameRate) noexcept
        : _pixelFormat(pixelFormat), _frameRate(frameRate) {}

    IxPixelFormat const& getPixelFormat() const noexcept { return _pixelFormat; }
    Rational const& getFrameRate() const noexcept { return _frameRate; }
    // The pixel aspect ratio in single precision, as coordinates are converted with it.
    float getAspectRatio() const noexcept {
        return static_cast<float>(_pixelFormat.getAspectRatio().toDouble());
    }
    bool isValid() const noexcept { return _pixelFormat.isValid(); }
    bool operator==(PxImageFormat const&) const noexcept = default;

private:
    IxPixelFormat _pixelFormat;
    Rational _frameRate;
};

} // namespace Vn
