#pragma once

#include "RCBase.h"

namespace Vn {

// A callback handler held through weak pointers: the party that calls it never keeps it alive.
template <class T>
class RCCbHandler : public RCSWBase<LkCounter<int>> {
public:
    virtual void execute(T& data) = 0;
};

// Calls a function object.
template <class T, class F>
class RCCbFunction final : public RCCbHandler<T> {
public:
    explicit RCCbFunction(F f) : _f(std::move(f)) {}
    void execute(T& data) override { _f(data); }

private:
    F _f;
};

template <class T, class F>
RCShdPtr<RCCbHandler<T>> makeRCCbHandler(F f) {
    return RCShdPtr<RCCbHandler<T>>(new RCCbFunction<T, F>(std::move(f)));
}

} // namespace Vn
