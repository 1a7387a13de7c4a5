#include "DtTime.h"

#include <chrono>
#include <ctime>

namespace Vn {

DtTime DtTime::now() {
    using namespace std::chrono;
    return DtTime(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

std::string DtTime::toString() const {
    std::time_t const s = static_cast<std::time_t>(_us / 1000000 - (_us % 1000000 < 0 ? 1 : 0));
    std::tm tm{};
    gmtime_r(&s, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
    return buf;
}

} // namespace Vn
