#pragma once

#include "ExBase.h"
#include "OPtr.h"
#include "VnExport.h"

#include <utility>

namespace Vn {

// The failures of a singleton that the application supplies; each names the class.
class VN_EXPORT InSingletonEx {
public:
    class VN_EXPORT ExNotInitialized : public ExBase {
    public:
        ExNotInitialized(char const* file, int line, char const* className);
        ~ExNotInitialized() override;
        VN_EX_CLONE_RAISE(ExNotInitialized)
    };
    class VN_EXPORT ExAlreadyInitialized : public ExBase {
    public:
        ExAlreadyInitialized(char const* file, int line, char const* className);
        ~ExAlreadyInitialized() override;
        VN_EX_CLONE_RAISE(ExAlreadyInitialized)
    };
    class VN_EXPORT ExAlreadyDestroyed : public ExBase {
    public:
        ExAlreadyDestroyed(char const* file, int line, char const* className);
        ~ExAlreadyDestroyed() override;
        VN_EX_CLONE_RAISE(ExAlreadyDestroyed)
    };
};

// The slot of a singleton whose object is given from outside: not initialized, initialized,
// destroyed. `finalize` deletes the object and makes the slot ready for another; `destroy`
// (also run by the destructor) closes it for good. Not safe across threads: slots are filled
// and emptied on the interface thread during start-up and shut-down.
template <class T>
class InSingleton {
public:
    enum State { NOT_INITIALIZED, INITIALIZED, DESTROYED };

    constexpr explicit InSingleton(char const* className) noexcept : _className(className) {}
    InSingleton(InSingleton const&) = delete;
    InSingleton& operator=(InSingleton const&) = delete;
    ~InSingleton() { destroy(); }

    T& getInstance() const {
        if (_state == DESTROYED)
            throw InSingletonEx::ExAlreadyDestroyed(__FILE__, __LINE__, _className);
        if (_state != INITIALIZED)
            throw InSingletonEx::ExNotInitialized(__FILE__, __LINE__, _className);
        return *_instance;
    }
    bool isInitialized() const noexcept { return _state == INITIALIZED; }
    State getState() const noexcept { return _state; }

    // A null object is refused as a null handle; the slot stays as it was.
    void initialize(OPtr<T> instance) {
        if (_state == INITIALIZED)
            throw InSingletonEx::ExAlreadyInitialized(__FILE__, __LINE__, _className);
        if (_state == DESTROYED)
            throw InSingletonEx::ExAlreadyDestroyed(__FILE__, __LINE__, _className);
        if (!instance)
            RCExUtil::throwExNullPtr(_className);
        _instance = std::move(instance);
        _state = INITIALIZED;
    }
    // Nothing to do when not initialized.
    void finalize() noexcept {
        if (_state != INITIALIZED)
            return;
        _state = NOT_INITIALIZED;
        _instance.reset();
    }
    void destroy() noexcept {
        finalize();
        _state = DESTROYED;
    }

private:
    char const* _className;
    State _state = NOT_INITIALIZED;
    OPtr<T> _instance;
};

} // namespace Vn
