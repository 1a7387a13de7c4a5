#include "LkThreadOpaqueData.h"
#include "Assertions.h"
#include "ExBase.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace Vn {

// A thread's object of one factory. Owned by the thread; the factory only frees its pointee and
// detaches it when it dies first.
struct LkThreadSlot {
    LkThreadOpaqueData* _owner;
    void* _pointee;
};

using LkThreadOpaqueDetail::Entry;
using LkThreadOpaqueDetail::t_capacity;
using LkThreadOpaqueDetail::t_entries;

constinit thread_local Entry* LkThreadOpaqueDetail::t_entries = nullptr;
constinit thread_local std::uint32_t LkThreadOpaqueDetail::t_capacity = 0;

namespace {

// Guards slot registration, thread exit and factory destruction; never on the hot path. Never
// destroyed, as threads may end after static destruction.
std::mutex& registryLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}

// Factory indexes are reused; the uid tells a thread's entry of a dead factory from a live one.
std::vector<std::uint32_t>* s_freeIndexes = nullptr;
std::uint32_t s_nextIndex = 0;
std::uint64_t s_nextUid = 1;

// Fast-path state of the calling thread: trivially destructible, so reading it costs no guard.
enum class Phase : unsigned char { NONE, ALIVE, ENDED };
constinit thread_local Phase t_phase = Phase::NONE;

} // namespace

// Frees the calling thread's objects when it ends.
struct LkThreadRegistry {
    ~LkThreadRegistry() {
        // Detach the entries first: a freeFn reaching thread data of this thread must find none.
        Entry* entries = std::exchange(t_entries, nullptr);
        std::uint32_t capacity = std::exchange(t_capacity, 0);
        t_phase = Phase::ENDED;
        std::lock_guard<std::mutex> lock(registryLock());
        for (std::uint32_t i = 0; i < capacity; ++i) {
            LkThreadSlot* slot = entries[i]._slot;
            if (!slot)
                continue;
            if (LkThreadOpaqueData* owner = slot->_owner) {
                owner->_slots.erase(std::find(owner->_slots.begin(), owner->_slots.end(), slot));
                try {
                    owner->_freeFn(slot->_pointee, owner->_context);
                } catch (ExBase const& e) {
                    ExStdout::printAtomically("Freeing thread data '" + owner->_name +
                                              "' failed: " + e.getDetailedReason());
                }
            }
            delete slot;
        }
        delete[] entries;
    }
};

namespace {
void registerThreadExit() {
    static thread_local LkThreadRegistry registry;
    (void)registry;
}
} // namespace

LkThreadOpaqueData::LkThreadOpaqueData(char const* name, MakeFn makeFn, FreeFn freeFn,
                                       void* context)
    : _name(name ? name : ""), _makeFn(makeFn), _freeFn(freeFn), _context(context) {
    VN_ASSERT(makeFn != nullptr && freeFn != nullptr);
    std::lock_guard<std::mutex> lock(registryLock());
    if (s_freeIndexes && !s_freeIndexes->empty()) {
        _index = s_freeIndexes->back();
        s_freeIndexes->pop_back();
    } else {
        _index = s_nextIndex++;
    }
    _uid = s_nextUid++;
}

LkThreadOpaqueData::~LkThreadOpaqueData() {
    std::lock_guard<std::mutex> lock(registryLock());
    for (LkThreadSlot* slot : _slots) {
        try {
            _freeFn(slot->_pointee, _context);
        } catch (ExBase const& e) {
            ExStdout::printAtomically("Freeing thread data '" + _name +
                                      "' failed: " + e.getDetailedReason());
        }
        slot->_pointee = nullptr;
        slot->_owner = nullptr;
    }
    _slots.clear();
    if (!s_freeIndexes)
        s_freeIndexes = new std::vector<std::uint32_t>;
    s_freeIndexes->push_back(_index);
}

void* LkThreadOpaqueData::getPointee() {
    void* p = tryGetPointee();
    VN_ASSERT(p != nullptr && "thread data used after the thread's exit clean-up");
    return p;
}

void* LkThreadOpaqueData::tryGetPointeeSlow() {
    if (t_phase == Phase::ENDED)
        return nullptr;
    return makeSlot();
}

void* LkThreadOpaqueData::makeSlot() {
    if (t_phase == Phase::NONE) {
        registerThreadExit();
        t_phase = Phase::ALIVE;
    }
    if (_index >= t_capacity) {
        std::uint32_t capacity = std::max<std::uint32_t>(_index + 1, 2 * t_capacity);
        capacity = std::max<std::uint32_t>(capacity, 8);
        auto* entries = new Entry[capacity]();
        std::copy(t_entries, t_entries + t_capacity, entries);
        delete[] t_entries;
        t_entries = entries;
        t_capacity = capacity;
    }
    void* pointee = _makeFn(_context);
    VN_ASSERT(pointee != nullptr);
    Entry& e = t_entries[_index];
    std::lock_guard<std::mutex> lock(registryLock());
    // A slot left here by a dead factory with the same index was detached by its destruction.
    delete e._slot;
    e._slot = new LkThreadSlot{this, pointee};
    e._uid = _uid;
    e._pointee = pointee;
    _slots.push_back(e._slot);
    return pointee;
}

int LkThreadOpaqueData::getNbPointees() const {
    std::lock_guard<std::mutex> lock(registryLock());
    return static_cast<int>(_slots.size());
}

OPtrRet<LkThreadOpaqueData> LkThreadOpaqueDataFactory::create(char const* name,
                                                              LkThreadOpaqueData::MakeFn makeFn,
                                                              LkThreadOpaqueData::FreeFn freeFn,
                                                              void* context) {
    return OPtrRet<LkThreadOpaqueData>(new LkThreadOpaqueData(name, makeFn, freeFn, context));
}

} // namespace Vn
