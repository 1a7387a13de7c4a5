#include "LkSingleton.h"

namespace Vn {

LkLock& LkSingletonBase::getInitLock() {
    // Never destroyed: singletons may be reached from static destructors of any library.
    static LkLock* lock = new LkLock("LkSingleton init lock");
    return *lock;
}

} // namespace Vn
