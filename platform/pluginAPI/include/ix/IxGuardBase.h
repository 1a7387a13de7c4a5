#pragma once

#include "IxTile.h"
#include "VnExport.h"

#include <cstddef>
#include <cstdint>

namespace Vn {

// What read and write guards share: a copy of the tile, whose memory stays acquired while the
// guard lives, and the address of its first pixel. Coordinates are absolute: pixel (x, y) lies
// at getBase() + y * stride + x * pixel size.
class VN_EXPORT IxGuardBase {
public:
    // Room an IxMemory may use for the life of one acquisition.
    static constexpr std::size_t kMemoryStateSize = 2 * sizeof(void*);

    IxTile const& getTile() const noexcept { return _tile; }
    IxPixelFormat const& getPixelFormat() const noexcept { return _tile._format; }
    GeRectangle<int> const& getPixelRegion() const noexcept { return _tile._region; }
    std::int32_t getLineStride() const noexcept { return _tile._stride; }
    int getPixelSize() const noexcept { return _tile._format.getPixelSize(); }
    // True while the guard holds a tile's memory, even one without storage.
    bool holdsMemory() const noexcept { return _held; }
    // The region's first pixel; null for a tile without storage.
    std::byte* getFirst() const noexcept { return _first; }

    void* getMemoryState() noexcept { return _memoryState; }

protected:
    IxGuardBase() noexcept = default;
    explicit IxGuardBase(IxTile const& tile) noexcept : _tile(tile) {}
    IxGuardBase(IxGuardBase const&) = delete;
    IxGuardBase& operator=(IxGuardBase const&) = delete;
    ~IxGuardBase() = default;

    std::uintptr_t addressOf(int x, int y) const noexcept {
        return reinterpret_cast<std::uintptr_t>(_first) +
               static_cast<std::intptr_t>(y - _tile._region.ymin) * _tile._stride +
               static_cast<std::intptr_t>(x - _tile._region.xmin) * getPixelSize();
    }
    IxMemory* getMemory() const noexcept { return _tile._memory.get(); }
    // Sets the first pixel from the memory's start.
    void setMemoryStart(std::byte const* start) noexcept {
        _first = start ? const_cast<std::byte*>(start) + _tile._offset : nullptr;
        _held = true;
    }

    IxTile _tile;
    std::byte* _first = nullptr;
    bool _held = false;
    alignas(void*) std::byte _memoryState[kMemoryStateSize];
};

// Keeps a tile's memory resident for reading while it lives.
class VN_EXPORT IxReadGuard : public IxGuardBase {
public:
    IxReadGuard() noexcept = default;
    explicit IxReadGuard(IxTile const& tile);
    // Acquires the memory once more.
    IxReadGuard(IxReadGuard const& o);
    IxReadGuard& operator=(IxReadGuard const& o);
    ~IxReadGuard();
    // Lets the memory go and holds nothing.
    void reset() noexcept;

    // The address of pixel (x, y) of the region.
    std::byte const* getAddress(int x, int y) const noexcept {
        return reinterpret_cast<std::byte const*>(addressOf(x, y));
    }
    template <class P>
    P const* getPixel(int x, int y) const noexcept {
        return reinterpret_cast<P const*>(addressOf(x, y));
    }
    // The address of pixel (0, 0), which may lie outside the memory.
    std::byte const* getBase() const noexcept {
        return reinterpret_cast<std::byte const*>(addressOf(0, 0));
    }

private:
    void acquire();
};

// Keeps a tile's memory resident for writing while it lives. A const guard still writes: it
// is a handle on the pixels.
class VN_EXPORT IxWriteGuard : public IxGuardBase {
public:
    IxWriteGuard() noexcept = default;
    explicit IxWriteGuard(IxTile const& tile);
    IxWriteGuard(IxWriteGuard const& o);
    IxWriteGuard& operator=(IxWriteGuard const& o);
    ~IxWriteGuard();
    void reset() noexcept;

    std::byte* getAddress(int x, int y) const noexcept {
        return reinterpret_cast<std::byte*>(addressOf(x, y));
    }
    template <class P>
    P* getPixel(int x, int y) const noexcept {
        return reinterpret_cast<P*>(addressOf(x, y));
    }
    std::byte* getBase() const noexcept { return reinterpret_cast<std::byte*>(addressOf(0, 0)); }
    // Sets the fill colour of the guard's copy of the tile: the one a writer hands on.
    void setFillColor(CoRgbaColorTyped<float> const& fill) noexcept { _tile.setFillColor(fill); }

private:
    void acquire();
};

} // namespace Vn
