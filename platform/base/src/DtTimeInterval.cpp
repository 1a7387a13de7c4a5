#include "DtTimeInterval.h"

#include <algorithm>
#include <ostream>

namespace Vn {

DtTimeInterval DtTimeInterval::intersect(DtTimeInterval const& o) const noexcept {
    DtTimeInterval r(std::max(_start, o._start), std::min(_end, o._end));
    return r.isEmpty() ? DtTimeInterval() : r;
}

void DtTimeInterval::dump(std::ostream& os) const {
    os << "[ " << _start.getMicroseconds() << ", " << _end.getMicroseconds() << " ]";
}

} // namespace Vn
