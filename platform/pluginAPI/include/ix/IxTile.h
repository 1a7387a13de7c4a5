#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "IxMemory.h"
#include "IxPixelFormat.h"
#include "RCBase.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// A block of pixels: a format, a region in absolute pixel coordinates, a fill colour standing
// for everything outside the region, and shared memory. Tiles are handed on by value; copies
// share the memory. Pixels are reached through IxReadGuard and IxWriteGuard.
//
// Pixel (x, y) of the region lies at byte offset + (y - ymin) * stride + (x - xmin) * pixel
// size of the memory; line starts are aligned to MIN_LINE_ALIGN.
class VN_EXPORT IxTile {
public:
    // A cache line, and the widest vector load.
    static constexpr int MIN_LINE_ALIGN = 64;

    static IxTile const INVALID_TILE;

    // A tile without memory.
    IxTile() noexcept = default;
    // A tile with new memory from the process's tile memory resource; the pixels are not
    // cleared. An empty region gives a tile without storage, which stands for its fill colour.
    IxTile(IxPixelFormat const& format, GeRectangle<int> const& region,
           CoRgbaColorTyped<float> const& fill);

    IxPixelFormat const& getPixelFormat() const noexcept { return _format; }
    GeRectangle<int> const& getPixelRegion() const noexcept { return _region; }
    CoRgbaColorTyped<float> const& getFillColor() const noexcept { return _fill; }
    void setFillColor(CoRgbaColorTyped<float> const& fill) noexcept { _fill = fill; }
    std::int32_t getLineStride() const noexcept { return _stride; }
    // Bytes from the start of the memory to the region's first pixel.
    std::uint32_t getByteOffset() const noexcept { return _offset; }
    bool isValid() const noexcept { return !_memory.isNull(); }
    char const* getOwnerName() const noexcept { return _owner; }

    // The line stride of a tile of this width: whole lines rounded up to MIN_LINE_ALIGN.
    static std::int32_t computeLineStride(IxPixelFormat const& format, int width);
    // Bytes of memory a tile of this format and region needs.
    static unsigned int computeBufferSize(IxPixelFormat const& format,
                                          GeRectangle<int> const& region);

    // The name under which tiles and tile memory made on this thread are recorded, for
    // diagnostics; "" when none is set.
    static char const* getCurrentTileOwnerName() noexcept { return t_ownerName; }

    // Names the owner of the tiles made on this thread while it lives. name must be a static
    // text.
    class VN_EXPORT OwnerNameScope {
    public:
        explicit OwnerNameScope(char const* name) noexcept;
        OwnerNameScope(OwnerNameScope const&) = delete;
        OwnerNameScope& operator=(OwnerNameScope const&) = delete;
        ~OwnerNameScope();

    private:
        char const* _previous;
    };

private:
    friend class IxTileManip;
    friend class IxGuardBase;

    // Read inline: every tile and block made records it.
    static constinit thread_local char const* t_ownerName;

    IxPixelFormat _format;
    GeRectangle<int> _region;
    CoRgbaColorTyped<float> _fill;
    RCShdPtr<IxMemory> _memory;
    std::int32_t _stride = 0;
    std::uint32_t _offset = 0;
    char const* _owner = "";
};

} // namespace Vn
