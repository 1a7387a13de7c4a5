#include "ObHint.h"

namespace Vn {

ObHint::~ObHint() = default;

void ObHints::add(RCShdPtr<ObHint> hint) {
    if (hint)
        _hints.push_back(std::move(hint));
}

} // namespace Vn
