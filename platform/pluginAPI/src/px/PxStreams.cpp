#include "PxStreams.h"
#include "Assertions.h"
#include "PxTimeContext.h"

namespace Vn {

void PxStreams::validateStream(int stream) {
    VN_ASSERT(stream >= kAllStreams && stream <= kMaxStream);
}

void PxStreams::add(int stream) {
    validateStream(stream);
    _bits |= stream == kAllStreams ? kAllBit : std::uint64_t(1) << (stream + 1);
}

bool PxStreams::contains(int stream) const noexcept {
    if (_bits & kAllBit)
        return true;
    if (stream == kAllStreams || stream < -1 || stream > kMaxStream)
        return false;
    return (_bits >> (stream + 1)) & 1u;
}

PxTimeStreamContext::PxTimeStreamContext(double time, int stream)
    : PxTimeContext(time), _stream(stream) {
    PxStreams::validateStream(stream);
}

} // namespace Vn
