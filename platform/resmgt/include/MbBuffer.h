#pragma once

#include "ExBase.h"
#include "LkCounter.h"
#include "MbAlignment.h"
#include "RCBase.h"
#include "VnExport.h"

#include <cstddef>
#include <cstdint>

namespace Vn {

// The shared state of one buffer, made by a buffer factory and counted by the MbBuffer handles
// that share it. A resident buffer keeps its data in memory for its whole life; any other kind
// brings its data in on pin() and may let it go when no pin is left.
class VN_EXPORT MbBufferImp : public RCBase<LkCounter<int>> {
public:
    MbBufferImp(MbBufferImp const&) = delete;
    MbBufferImp& operator=(MbBufferImp const&) = delete;

    std::size_t getSize() const noexcept { return _size; }
    MbAlignment const& getAlignment() const noexcept { return _alignment; }
    // A static text given by whoever asked for the buffer.
    char const* getName() const noexcept { return _name; }
    bool isAlwaysResident() const noexcept { return _alwaysResident; }
    // The data while it is in memory, else null.
    std::byte* getResidentData() const noexcept { return _data; }

    virtual bool isLoaded() const noexcept;
    // Brings the data in if needed and keeps it in until the matching unpin(). May block on I/O
    // and may raise; never called on a resident buffer.
    virtual std::byte* pin();
    virtual void unpin() noexcept;

protected:
    // Inline, as they run for every buffer made: from the factory's library they would be
    // reached through its symbol table.
    MbBufferImp(char const* name, std::size_t size, MbAlignment const& alignment, std::byte* data,
                bool alwaysResident) noexcept
        : _data(data), _name(name ? name : ""), _size(size), _alignment(alignment),
          _alwaysResident(alwaysResident) {}
    ~MbBufferImp() override = default;

    std::byte* _data;

private:
    char const* _name;
    std::size_t _size;
    MbAlignment _alignment;
    bool _alwaysResident;
};

// A handle on a buffer of bytes. Copies share the buffer; the last one lets it go. A null handle
// has no buffer: size 0, no data.
class VN_EXPORT MbBuffer {
public:
    MbBuffer() noexcept = default;
    // A resident, zero-filled buffer from the default factory. alignment must be a power of two.
    explicit MbBuffer(std::size_t size, std::size_t alignment = 64);
    explicit MbBuffer(RCShdPtr<MbBufferImp> imp) noexcept : _imp(std::move(imp)) {}

    // The data of a loaded buffer; pixels are reached through the guards below, which load.
    std::byte* getData() noexcept { return _imp ? _imp->getResidentData() : nullptr; }
    std::byte const* getData() const noexcept { return _imp ? _imp->getResidentData() : nullptr; }
    std::size_t getSize() const noexcept { return _imp ? _imp->getSize() : 0; }
    // The power of two the data is aligned to.
    std::size_t getAlignment() const noexcept {
        return _imp ? _imp->getAlignment().getAlignment() : 0;
    }
    MbAlignment getAlignmentSpec() const noexcept {
        return _imp ? _imp->getAlignment() : MbAlignment();
    }
    char const* getName() const noexcept { return _imp ? _imp->getName() : ""; }
    bool isEmpty() const noexcept { return getSize() == 0; }
    bool isNull() const noexcept { return _imp.isNull(); }
    bool isLoaded() const noexcept { return !_imp || _imp->isLoaded(); }
    // True when this handle is the buffer's only one.
    bool isUniqueOwner() const noexcept { return _imp && _imp->getRefCount() == 1; }
    int getNbOwners() const noexcept { return _imp ? _imp->getRefCount() : 0; }
    MbBufferImp* getImp() const noexcept { return _imp.get(); }
    bool operator==(MbBuffer const& o) const noexcept { return _imp.get() == o._imp.get(); }

private:
    RCShdPtr<MbBufferImp> _imp;
};

// Keeps a buffer's data in memory for writing while it lives. The buffer must outlive it.
class MbBufferWrGuardImp {
public:
    explicit MbBufferWrGuardImp(MbBuffer const& buffer) : _imp(buffer.getImp()) {
        if (_imp)
            _data = _imp->isAlwaysResident() ? _imp->getResidentData() : _imp->pin();
    }
    MbBufferWrGuardImp(MbBufferWrGuardImp const&) = delete;
    MbBufferWrGuardImp& operator=(MbBufferWrGuardImp const&) = delete;
    ~MbBufferWrGuardImp() {
        if (_imp && !_imp->isAlwaysResident())
            _imp->unpin();
    }
    std::byte* getData() const noexcept { return _data; }

private:
    MbBufferImp* _imp;
    std::byte* _data = nullptr;
};

// Keeps a buffer's data in memory for reading while it lives. The buffer must outlive it.
class MbBufferRdGuardImp {
public:
    explicit MbBufferRdGuardImp(MbBuffer const& buffer) : _imp(buffer.getImp()) {
        if (_imp)
            _data = _imp->isAlwaysResident() ? _imp->getResidentData() : _imp->pin();
    }
    MbBufferRdGuardImp(MbBufferRdGuardImp const&) = delete;
    MbBufferRdGuardImp& operator=(MbBufferRdGuardImp const&) = delete;
    ~MbBufferRdGuardImp() {
        if (_imp && !_imp->isAlwaysResident())
            _imp->unpin();
    }
    std::byte const* getData() const noexcept { return _data; }

private:
    MbBufferImp* _imp;
    std::byte const* _data = nullptr;
};

// Memory could not be had for a buffer.
class VN_EXPORT MbExOutOfMemory : public ExBase {
public:
    MbExOutOfMemory(char const* file, int line, char const* name, std::size_t size);
    ~MbExOutOfMemory() override;
    VN_EX_CLONE_RAISE(MbExOutOfMemory)
};

// Makes buffers. Paging, limits and the response to exhaustion are a factory's business.
class VN_EXPORT MbBufferFactory {
public:
    virtual ~MbBufferFactory();
    // name must be a static text. Size 0 gives a null buffer. The data is not cleared. Raises
    // MbExOutOfMemory when no memory can be had.
    virtual MbBuffer create(char const* name, std::size_t size, MbAlignment const& alignment) = 0;
    // create(), with roomSize bytes aligned to 16 in the buffer's own block for an object that
    // holds a handle on the buffer: room is set to them, or to null when the factory gives none
    // (the default). The object must be destroyed before it lets its handle go, and it is gone
    // once the buffer's last handle is.
    virtual MbBuffer createWithRoom(char const* name, std::size_t size,
                                    MbAlignment const& alignment, std::size_t roomSize,
                                    void*& room);
};

// The default factory: resident buffers from the heap. Small buffers come from a thread-caching
// pool; large ones are recycled by exact page count, through a per-thread cache first, then a
// shared one bounded by VN_MB_BUFFER_CACHE_MB megabytes (default 256).
class VN_EXPORT MbHeapBufferFactory : public MbBufferFactory {
public:
    MbBuffer create(char const* name, std::size_t size, MbAlignment const& alignment) override;
    // Gives the room between the buffer's state and its data, so that a caller's object and the
    // buffer are one allocation.
    MbBuffer createWithRoom(char const* name, std::size_t size, MbAlignment const& alignment,
                            std::size_t roomSize, void*& room) override;
    // Buffers made by this factory and still alive, and their bytes.
    static std::int64_t getNbLiveBuffers();
    static std::int64_t getLiveBytes();
    // Bytes held for reuse in the shared cache.
    static std::size_t getCachedBytes() noexcept;
    // Gives the shared cache's blocks back to the system.
    static void trim();
};

// Factories by number. Slot 0 holds the default factory unless another is installed there.
class VN_EXPORT MbBufferFactoryRegistry {
public:
    static constexpr int kNbFactories = 8;

    // The factory at id; an empty slot is an assertion failure.
    static MbBufferFactory& getFactory(int id);
    // Installs factory (not owned) at id and gives back the previous one. Null empties the slot,
    // and at slot 0 puts the default factory back.
    static MbBufferFactory* setFactory(int id, MbBufferFactory* factory);
    static MbHeapBufferFactory& getDefaultFactory();
};

} // namespace Vn
