#pragma once

#include "RCBase.h"

namespace Vn {

// A counted pointer on an object that the engine makes and shares among its own nodes. It counts
// as RCShdPtr does; the name marks the objects that users treat as copy-on-write: whoever wants
// to change one that is shared (count above 1) clones it first.
template <class T>
using RCPvtEngPtr = RCShdPtr<T>;

} // namespace Vn
