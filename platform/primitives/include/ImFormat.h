#pragma once

#include "GeRectangle.h"
#include "ImImageConst.h"
#include "ImPixelFormat.h"
#include "Rational.h"
#include "VnExport.h"

namespace Vn {

// The format of a whole image: its size in pixels, the pixels' format and their aspect ratio.
class VN_EXPORT ImFormat {
public:
    ImFormat() noexcept = default;
    ImFormat(int width, int height, ImPixelFormat const& pixelFormat,
             Rational const& pixelRatio = Rational(1)) noexcept
        : _width(width), _height(height), _pixelFormat(pixelFormat), _pixelRatio(pixelRatio) {}

    int getWidth() const noexcept { return _width; }
    int getHeight() const noexcept { return _height; }
    ImPixelFormat const& getPixelFormat() const noexcept { return _pixelFormat; }
    Rational const& getPixelRatio() const noexcept { return _pixelRatio; }
    // {0, width, 0, height}.
    GeRectangle<int> getRegion() const noexcept { return {0, _width, 0, _height}; }
    bool operator==(ImFormat const&) const noexcept = default;

private:
    int _width = 0;
    int _height = 0;
    ImPixelFormat _pixelFormat;
    Rational _pixelRatio = Rational(1);
};

// Where images get their memory.
class VN_EXPORT ImMemory {
public:
    // Makes the memory of an image of a layout.
    class VN_EXPORT Factory {
    public:
        virtual ~Factory();
        // An image of the layout; the pixels are not cleared. Raises MbExOutOfMemory.
        virtual ImImage create(ImLayout const& layout) const = 0;
    };
    // Memory from the default buffer factory.
    static Factory const& getDefaultFactory();
};

} // namespace Vn
