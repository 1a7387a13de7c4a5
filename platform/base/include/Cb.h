#pragma once

#include <algorithm>
#include <vector>

namespace Vn {

// The data of a callback that carries none.
struct CbEmptyType {};

template <class T>
class CbDispatcher;

// A subscriber. Each end of a subscription removes itself from the other when destroyed.
// Not safe across threads.
template <class T>
class CbHandler {
public:
    CbHandler() = default;
    CbHandler(CbHandler const&) = delete;
    CbHandler& operator=(CbHandler const&) = delete;
    virtual ~CbHandler() {
        auto dispatchers = std::move(_dispatchers);
        for (auto* d : dispatchers)
            d->forget(this);
    }
    virtual void execute(T const& data) = 0;

private:
    friend class CbDispatcher<T>;
    std::vector<CbDispatcher<T>*> _dispatchers;
};

// A list of subscribers. Subscribing null or twice is ignored. A call works on a copy of the
// list and skips handlers that were removed during it, so handlers may subscribe, unsubscribe
// and destroy one another, and the dispatcher itself, while being called.
template <class T>
class CbDispatcher {
public:
    CbDispatcher() = default;
    CbDispatcher(CbDispatcher const&) = delete;
    CbDispatcher& operator=(CbDispatcher const&) = delete;
    ~CbDispatcher() {
        if (_alive)
            *_alive = false;
        for (auto* h : _handlers)
            std::erase(h->_dispatchers, this);
    }

    // Whether a handler is here is asked of the shorter list: a dispatcher may have many
    // handlers (paths through a node), and a handler many dispatchers (a long path).
    void addHandler(CbHandler<T>* h) {
        if (!h || isSubscribed(*h))
            return;
        _handlers.push_back(h);
        h->_dispatchers.push_back(this);
    }
    void removeHandler(CbHandler<T>* h) {
        if (!h || !isSubscribed(*h))
            return;
        forget(h);
        std::erase(h->_dispatchers, this);
    }
    void call(T const& data = T()) {
        auto const snapshot = _handlers;
        std::size_t const removals = _removals;
        // Each call in progress, nested ones included, learns through its own flag that a
        // handler destroyed the dispatcher, and then touches nothing of it.
        bool alive = true;
        bool* const outer = _alive;
        _alive = &alive;
        struct Restore {
            CbDispatcher* d;
            bool& alive;
            bool* outer;
            ~Restore() {
                if (alive)
                    d->_alive = outer;
                else if (outer)
                    *outer = false;
            }
        } restore{this, alive, outer};
        for (auto* h : snapshot) {
            if (!alive)
                return;
            // Only after a removal can a handler of the snapshot be gone (destroyed, even):
            // then its pointer is looked for, never followed.
            if (_removals == removals || contains(h))
                h->execute(data);
        }
    }
    bool isEmpty() const noexcept { return _handlers.empty(); }
    std::size_t size() const noexcept { return _handlers.size(); }
    bool contains(CbHandler<T> const* h) const {
        return std::find(_handlers.begin(), _handlers.end(), h) != _handlers.end();
    }

private:
    friend class CbHandler<T>;
    bool isSubscribed(CbHandler<T> const& h) const {
        if (_handlers.size() <= h._dispatchers.size())
            return contains(&h);
        return std::find(h._dispatchers.begin(), h._dispatchers.end(), this) !=
               h._dispatchers.end();
    }
    void forget(CbHandler<T>* h) {
        std::erase(_handlers, h);
        ++_removals;
    }
    std::vector<CbHandler<T>*> _handlers;
    std::size_t _removals = 0;
    bool* _alive = nullptr;
};

// Calls a member function of an object.
template <class Obj, class T>
class CbMethod final : public CbHandler<T> {
public:
    using Method = void (Obj::*)(T const&);
    CbMethod(Obj* obj, Method m) : _obj(obj), _method(m) {}
    void execute(T const& data) override { (_obj->*_method)(data); }

private:
    Obj* _obj;
    Method _method;
};

// Calls a free function with a datum fixed at subscription.
template <class T, class D>
class CbDataFunction final : public CbHandler<T> {
public:
    using Function = void (*)(T const&, D);
    CbDataFunction(Function f, D data) : _f(f), _data(data) {}
    void execute(T const& data) override { _f(data, _data); }

private:
    Function _f;
    D _data;
};

} // namespace Vn
