#pragma once

// Events that carry a datum to a callback handler on the event thread.

#include "Cb.h"
#include "EvEventManager.h"

#include <type_traits>
#include <utility>

namespace Vn {

// Calls a handler that outlives the event (a static one) with the datum.
template <class T>
class EvRequestCb final : public EvRequestEvent {
public:
    EvRequestCb(CbHandler<T>* handler, T data) : _handler(handler), _data(std::move(data)) {}
    void execute() override { _handler->execute(_data); }

private:
    CbHandler<T>* _handler;
    std::remove_const_t<T> _data;
};

// Calls a handler that belongs to an object, and keeps the object alive through a Ptr<Obj> until
// the event has run.
template <class Obj, class T, template <class> class Ptr>
class EvObjectRequestCb final : public EvRequestEvent {
public:
    EvObjectRequestCb(Ptr<Obj> object, T data, CbHandler<T>* handler)
        : _object(std::move(object)), _data(std::move(data)), _handler(handler) {}
    void execute() override { _handler->execute(_data); }

private:
    Ptr<Obj> _object;
    std::remove_const_t<T> _data;
    CbHandler<T>* _handler;
};

} // namespace Vn
