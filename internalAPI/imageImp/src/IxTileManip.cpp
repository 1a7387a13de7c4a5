#include "IxTileManip.h"
#include "Assertions.h"
#include "IxMemResourceImp.h"

namespace Vn {

using TileMemoryBuffer = IxMemResourceImp::TileMemoryBuffer;

// Both createTile forms, inline in each: a call between two exported functions of the library
// goes through its symbol table.
inline IxTile IxTileManip::makeTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                                    RCShdPtr<IxMemory>&& memory,
                                    CoRgbaColorTyped<float> const& fillColor, std::int32_t stride,
                                    std::uint32_t offset) {
    VN_ASSERT(format.isValid());
    IxTile tile;
    tile._format = format;
    tile._region = region.isEmpty() ? GeRectangle<int>() : region;
    tile._fill = fillColor;
    tile._stride = stride;
    tile._offset = offset;
    tile._owner = IxTile::getCurrentTileOwnerName();
    VN_ASSERT(stride >= 0 && stride % IxTile::MIN_LINE_ALIGN == 0);
    VN_ASSERT(static_cast<std::size_t>(stride) >=
              static_cast<std::size_t>(tile._region.width()) * format.getPixelSize());
    if (memory) {
        std::size_t const needed =
            tile._region.isEmpty()
                ? 0
                : offset + static_cast<std::size_t>(tile._region.height() - 1) * stride +
                      static_cast<std::size_t>(tile._region.width()) * format.getPixelSize();
        VN_ASSERT(memory->getSize() >= needed);
    }
    tile._memory = std::move(memory);
    return tile;
}

IxTile IxTileManip::createTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                               RCShdPtr<IxMemory> memory,
                               CoRgbaColorTyped<float> const& fillColor) {
    return makeTile(format, region, std::move(memory), fillColor,
                    IxTile::computeLineStride(format, region.width()), 0);
}

IxTile IxTileManip::createTile(IxPixelFormat const& format, GeRectangle<int> const& region,
                               RCShdPtr<IxMemory> memory, CoRgbaColorTyped<float> const& fillColor,
                               std::int32_t stride, std::uint32_t offset) {
    return makeTile(format, region, std::move(memory), fillColor, stride, offset);
}

IxTile* IxTileManip::createArray(unsigned int n) {
    return new IxTile[n];
}

void IxTileManip::destroyArray(IxTile* tiles) noexcept {
    delete[] tiles;
}

RCShdPtr<IxMemory> const& IxTileManip::getMemory(IxTile const& tile) noexcept {
    return tile._memory;
}

void IxTileManip::setPixelRegion(IxTile& tile, GeRectangle<int> const& subRegion) {
    GeRectangle<int> const prevRegion = tile._region;
    // clang-format off
    VN_ASSERT(prevRegion.contains( subRegion ));
    // clang-format on
    if (subRegion.isEmpty()) {
        tile._region = GeRectangle<int>();
        return;
    }
    tile._offset += static_cast<std::uint32_t>(
        static_cast<std::size_t>(subRegion.ymin - prevRegion.ymin) * tile._stride +
        static_cast<std::size_t>(subRegion.xmin - prevRegion.xmin) * tile._format.getPixelSize());
    tile._region = subRegion;
}

bool IxTileManip::isSinglyOwned(IxTile const& tile) {
    IxMemory const* memory = tile._memory.get();
    if (!memory || memory->getRefCount() != 1)
        return false;
    if (auto const* buffer = dynamic_cast<TileMemoryBuffer const*>(memory))
        return buffer->getBuffer().isUniqueOwner();
    return true;
}

std::int32_t& IxTileManip::guardCount() {
    return TileMemoryBuffer::threadGuardCount();
}

bool IxTileManip::isCounted(IxGuardBase const& guard) noexcept {
    return guard.holdsMemory() &&
           dynamic_cast<TileMemoryBuffer const*>(guard.getTile()._memory.get()) != nullptr;
}

IxTileManip::ReadGuardNoCheck::ReadGuardNoCheck(IxTile const& tile) : IxReadGuard(tile) {
    if (isCounted(*this))
        --guardCount();
}

IxTileManip::ReadGuardNoCheck::ReadGuardNoCheck(ReadGuardNoCheck const& o) : IxReadGuard(o) {
    if (isCounted(*this))
        --guardCount();
}

IxTileManip::ReadGuardNoCheck& IxTileManip::ReadGuardNoCheck::operator=(ReadGuardNoCheck const& o) {
    if (isCounted(*this))
        ++guardCount();
    IxReadGuard::operator=(o);
    if (isCounted(*this))
        --guardCount();
    return *this;
}

IxTileManip::ReadGuardNoCheck::~ReadGuardNoCheck() {
    if (isCounted(*this))
        ++guardCount();
}

IxTileManip::WriteGuardNoCheck::WriteGuardNoCheck(IxTile const& tile) : IxWriteGuard(tile) {
    if (isCounted(*this))
        --guardCount();
}

IxTileManip::WriteGuardNoCheck::WriteGuardNoCheck(WriteGuardNoCheck const& o) : IxWriteGuard(o) {
    if (isCounted(*this))
        --guardCount();
}

IxTileManip::WriteGuardNoCheck&
IxTileManip::WriteGuardNoCheck::operator=(WriteGuardNoCheck const& o) {
    if (isCounted(*this))
        ++guardCount();
    IxWriteGuard::operator=(o);
    if (isCounted(*this))
        --guardCount();
    return *this;
}

IxTileManip::WriteGuardNoCheck::~WriteGuardNoCheck() {
    if (isCounted(*this))
        ++guardCount();
}

IxTileManip::ResetIxGuardCheckGuard::ResetIxGuardCheckGuard() : _saved(guardCount()) {
    guardCount() = 0;
}

IxTileManip::ResetIxGuardCheckGuard::~ResetIxGuardCheckGuard() {
    guardCount() = _saved;
}

} // namespace Vn
