#include "RCBase.h"

namespace Vn {

bool RCSWCount::tryAddStrong() noexcept {
    int n = _strong.get();
    // A count that reached 0 never rises again: the object is being destroyed.
    while (n != 0) {
        if (_strong.compareAndSwap(n, n + 1))
            return true;
    }
    return false;
}

void RCSWCount::releaseWeak() noexcept {
    if (_weak.decrement() == 0)
        delete this;
}

RCSWBase<LkCounter<int>>::~RCSWBase() {
    _counter->releaseWeak();
}

} // namespace Vn
