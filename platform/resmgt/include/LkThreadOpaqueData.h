#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Vn {

struct LkThreadSlot;

namespace LkThreadOpaqueDetail {
// A thread's entry for one factory. The pointee is copied beside the uid so that the fast path
// reads one line; it never changes while the factory of that uid lives.
struct Entry {
    std::uint64_t _uid;
    void* _pointee;
    LkThreadSlot* _slot;
};
// The calling thread's entries, indexed by factory. Trivial, so that reading them costs no
// guard and callers in every library reach them without a call.
VN_EXPORT extern constinit thread_local Entry* t_entries;
VN_EXPORT extern constinit thread_local std::uint32_t t_capacity;
} // namespace LkThreadOpaqueDetail

// One object per thread, made by makeFn on the thread's first getPointee() and freed by freeFn
// when the thread ends. Objects of threads still alive when this is destroyed are freed then.
// freeFn runs under a process-wide lock: it must not make thread data of its own.
class VN_EXPORT LkThreadOpaqueData {
public:
    using MakeFn = void* (*)(void* context);
    using FreeFn = void (*)(void* pointee, void* context);

    LkThreadOpaqueData(LkThreadOpaqueData const&) = delete;
    LkThreadOpaqueData& operator=(LkThreadOpaqueData const&) = delete;
    ~LkThreadOpaqueData();

    // The calling thread's object, made now if it has none.
    void* getPointee();
    // As getPointee(), but null once the calling thread has begun freeing its thread data at exit.
    void* tryGetPointee() {
        using namespace LkThreadOpaqueDetail;
        if (_index < t_capacity) [[likely]] {
            Entry const& e = t_entries[_index];
            if (e._uid == _uid) [[likely]]
                return e._pointee;
        }
        return tryGetPointeeSlow();
    }

    std::string const& getName() const noexcept { return _name; }
    // Objects made and not yet freed.
    int getNbPointees() const;

private:
    friend class LkThreadOpaqueDataFactory;
    friend struct LkThreadRegistry;
    LkThreadOpaqueData(char const* name, MakeFn makeFn, FreeFn freeFn, void* context);
    void* tryGetPointeeSlow();
    void* makeSlot();

    std::string _name;
    MakeFn _makeFn;
    FreeFn _freeFn;
    void* _context;
    std::uint32_t _index;
    std::uint64_t _uid;
    std::vector<LkThreadSlot*> _slots;
};

// Makes per-thread data slots.
class VN_EXPORT LkThreadOpaqueDataFactory {
public:
    // context is handed to both functions. makeFn must not return null.
    static OPtrRet<LkThreadOpaqueData> create(char const* name, LkThreadOpaqueData::MakeFn makeFn,
                                              LkThreadOpaqueData::FreeFn freeFn,
                                              void* context = nullptr);
};

} // namespace Vn
