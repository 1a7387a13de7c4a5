#pragma once

#include "LkAtomicObj.h"
#include "LkSListNode.h"
#include "VnExport.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace Vn {

class ExBase;
class LkWaitEntry;
class PxRequest;
class StatThreadLocal;

// The state of one request, changed only by commits on the request's LkAtomicObj.
struct PxRequestState {
    enum Status : std::uint32_t {
        NEW = 0,
        QUEUED = 1,
        EXECUTING = 2,
        PENDING = 3,
        DONE = 4,
        POST_EXECUTED = 5,
        CLEANED_UP = 6,
        FAILED = 7,
        FAILED_POST_EXECUTED = 8,
        DESTROYED = 9,
    };
    enum Flag : std::uint32_t {
        DEQUEUED = 0x10,
        RELEASED = 0x20,
        RESULT_QUERIED = 0x40,
        CANCELLED = 0x80,
        UNWINDED = 0x100,
        EXTERNAL = 0x200,
        // The engine's own: one of the references is a place in a parent's child list.
        IN_CHILD_LIST = 0x400,
    };

    // One cache line: every commit copies all of it.
    PxRequest* _firstChild;
    PxRequest* _nextSibling;
    std::int32_t _nbReferences;
    std::uint32_t _statusAndFlags;
    LkWaitEntry* _waiters;
    StatThreadLocal* _stats; // owned
    double _cpuTime;
    ExBase* _exception; // owned
    // Only an internal request has a root, and only a root is held (EXTERNAL tells which): the
    // holds count the internal requests of the tree still alive, so that a root is not deleted
    // while a descendant may still read it.
    union {
        PxRequest* _rootRequest;
        std::int64_t _nbHolds;
    };

    Status getStatus() const noexcept { return Status(_statusAndFlags & 0xF); }
    void setStatus(Status s) noexcept { _statusAndFlags = (_statusAndFlags & ~0xFu) | s; }
    bool has(Flag f) const noexcept { return (_statusAndFlags & f) != 0; }
    void set(Flag f) noexcept { _statusAndFlags |= f; }
    void clear(Flag f) noexcept { _statusAndFlags &= ~std::uint32_t(f); }
    bool isResultQueried() const noexcept { return has(RESULT_QUERIED); }
    bool isCancelled() const noexcept { return has(CANCELLED); }
    bool isUnwinded() const noexcept { return has(UNWINDED); }
    PxRequest* getRootRequest() const noexcept { return has(EXTERNAL) ? nullptr : _rootRequest; }
    std::int64_t getNbHolds() const noexcept { return has(EXTERNAL) ? _nbHolds : 0; }
};

static_assert(sizeof(PxRequestState) == 64);

// One unit of work for the processing engine. Made with new (its memory comes from the engine),
// submitted and waited for through PxRequestMgr, and let go with releaseRequest, never delete.
// GFX requests all run on the one GFX worker: a GFX request must not wait, directly or through
// CPU requests, for another GFX request.
class VN_EXPORT PxRequest : public LkSListNode {
public:
    enum ExecutionMode : std::uint8_t { CONCURRENT = 0, SEQUENTIAL = 1 };
    enum ReferencingMode : std::uint8_t { REFERENCED = 0, FIRE_AND_FORGET = 1 };
    enum ResourceType : std::uint8_t { CPU = 0, GFX = 1 };
    using PriorityLevel = int;

    // One byte: bits 0-1 execution mode, 2-3 referencing mode, 4-5 resource; 6-7 kept as given.
    class RequestType {
    public:
        constexpr RequestType(ExecutionMode e = CONCURRENT, ReferencingMode r = REFERENCED,
                              ResourceType res = CPU) noexcept
            : _bits(static_cast<std::uint8_t>(e | (r << 2) | (res << 4))) {}
        static constexpr RequestType fromByte(std::uint8_t b) noexcept {
            RequestType t;
            t._bits = b;
            return t;
        }
        constexpr ExecutionMode getExecutionMode() const noexcept {
            return ExecutionMode(_bits & 3);
        }
        constexpr ReferencingMode getReferencingMode() const noexcept {
            return ReferencingMode((_bits >> 2) & 3);
        }
        constexpr ResourceType getResourceType() const noexcept {
            return ResourceType((_bits >> 4) & 3);
        }
        constexpr std::uint8_t getByte() const noexcept { return _bits; }

    private:
        std::uint8_t _bits;
    };

    PxRequest();
    PxRequest(PxRequest const&) = delete;
    PxRequest& operator=(PxRequest const&) = delete;

    // Concurrent, REFERENCED, CPU unless overridden.
    virtual RequestType getRequestType() const;
    // 0 or 1; a level-1 request moves ahead of level-0 ones in the external queue.
    virtual PriorityLevel getPriorityLevel() const;
    virtual ~PxRequest();
    virtual void performExecute() = 0;
    virtual void completeExecution();
    // Must not let an exception out.
    virtual void postExecute();
    virtual void performCleanUp();

    ExecutionMode getExecutionMode() const { return getRequestType().getExecutionMode(); }
    ReferencingMode getReferencingMode() const { return getRequestType().getReferencingMode(); }
    ResourceType getResourceType() const { return getRequestType().getResourceType(); }

    static void* operator new(std::size_t size);
    static void operator delete(void* p, std::size_t size) noexcept;

    // The engine's access to the state.
    LkAtomicObj<PxRequestState>& getStateObj() noexcept { return _state; }
    LkAtomicObj<PxRequestState> const& getStateObj() const noexcept { return _state; }

private:
    LkAtomicObj<PxRequestState> _state;
};

// How a request is let go once the engine is gone: the engine leaves these behind when it stops
// with requests still alive, so that their owners can free them quietly.
struct VN_EXPORT PxRequestOrphans {
    using DisposeFn = void (*)(PxRequest&) noexcept;
    using FreeFn = void (*)(void*, std::size_t) noexcept;
    static void set(DisposeFn dispose, FreeFn free) noexcept;
};

// What the owning handles of requests share: the release of the one request held.
class VN_EXPORT PxRequestPtrBase {
protected:
    [[noreturn]] static void throwNullPtrException();
    static void release(PxRequest* r);
};

// Owns one reference to a request; letting it go releases the request.
template <class T>
class PxRequestPtr : private PxRequestPtrBase {
public:
    PxRequestPtr() noexcept = default;
    explicit PxRequestPtr(T* r) noexcept : _r(r) {}
    PxRequestPtr(PxRequestPtr&& o) noexcept : _r(std::exchange(o._r, nullptr)) {}
    PxRequestPtr& operator=(PxRequestPtr&& o) noexcept(false) {
        if (this != &o) {
            reset();
            _r = std::exchange(o._r, nullptr);
        }
        return *this;
    }
    PxRequestPtr(PxRequestPtr const&) = delete;
    PxRequestPtr& operator=(PxRequestPtr const&) = delete;
    // Releasing checks that no failure is lost, and may raise when that check fails; never while
    // another exception unwinds.
    ~PxRequestPtr() noexcept(false) { reset(); }

    void reset() {
        if (T* r = std::exchange(_r, nullptr))
            release(r);
    }
    T* get() const noexcept { return _r; }
    T* detach() noexcept { return std::exchange(_r, nullptr); }
    T* operator->() const {
        if (!_r)
            throwNullPtrException();
        return _r;
    }
    T& operator*() const { return *operator->(); }
    explicit operator bool() const noexcept { return _r != nullptr; }

private:
    T* _r = nullptr;
};

} // namespace Vn
