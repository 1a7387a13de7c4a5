#pragma once

#include "IxGuardBase.h"
#include "IxTile.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

// The privileged operations on tiles, for the classes that make and shape them: derive from it
// to reach them.
class VN_EXPORT IxTileManip {
public:
    // A read guard that is not counted on the thread: it takes its own count back right after
    // acquiring, and gives it again just before it lets go.
    class VN_EXPORT ReadGuardNoCheck : public IxReadGuard {
    public:
        ReadGuardNoCheck() noexcept = default;
        explicit ReadGuardNoCheck(IxTile const& tile);
        ReadGuardNoCheck(ReadGuardNoCheck const& o);
        ReadGuardNoCheck& operator=(ReadGuardNoCheck const& o);
        ~ReadGuardNoCheck();
    };

    // A write guard that is not counted on the thread.
    class VN_EXPORT WriteGuardNoCheck : public IxWriteGuard {
    public:
        WriteGuardNoCheck() noexcept = default;
        explicit WriteGuardNoCheck(IxTile const& tile);
        WriteGuardNoCheck(WriteGuardNoCheck const& o);
        WriteGuardNoCheck& operator=(WriteGuardNoCheck const& o);
        ~WriteGuardNoCheck();
    };

    // Within its scope the thread's guard count starts again from 0; the count from before
    // comes back at its end.
    class VN_EXPORT ResetIxGuardCheckGuard {
    public:
        ResetIxGuardCheckGuard();
        ResetIxGuardCheckGuard(ResetIxGuardCheckGuard const&) = delete;
        ResetIxGuardCheckGuard& operator=(ResetIxGuardCheckGuard const&) = delete;
        ~ResetIxGuardCheckGuard();

    private:
        std::int32_t _saved;
    };

protected:
    // A tile over existing memory, with lines packed at IxTile::computeLineStride. The memory
    // must hold the region.
    static IxTile createTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                             RCShdPtr<IxMemory> memory, CoRgbaColorTyped<float> const& fillColor);
    // The same with a given line stride and offset of the first pixel.
    static IxTile createTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                             RCShdPtr<IxMemory> memory, CoRgbaColorTyped<float> const& fillColor,
                             std::int32_t stride, std::uint32_t offset);
    // n default tiles in one array, freed by destroyArray.
    static IxTile* createArray(unsigned int n);
    static void destroyArray(IxTile* tiles) noexcept;
    static RCShdPtr<IxMemory> const& getMemory(IxTile const& tile) noexcept;
    // Narrows the region in place to one inside it; stride and memory stay.
    static void setPixelRegion(IxTile& tile, GeRectangle<int> const& subRegion);
    // True when nothing else shares the tile's memory, down to its buffer.
    static bool isSinglyOwned(IxTile const& tile);

private:
    static IxTile makeTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                           RCShdPtr<IxMemory>&& memory, CoRgbaColorTyped<float> const& fillColor,
                           std::int32_t stride, std::uint32_t offset);
    // True when the guard holds memory that counts guards on the thread.
    static bool isCounted(IxGuardBase const& guard) noexcept;
    // The calling thread's count of guards over tile memory.
    static std::int32_t& guardCount();
};

} // namespace Vn
