#include "DtRefTime.h"

#include <chrono>

namespace Vn {

DtRefTime DtRefTime::now() noexcept {
    using namespace std::chrono;
    return DtRefTime(duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count());
}

} // namespace Vn
