#pragma once

#include <vector>

namespace Vn {

// The system's growable array. Not safe across threads.
template <class T>
using Vector = std::vector<T>;

} // namespace Vn
