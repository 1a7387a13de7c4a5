#include "PxResultProtocol.h"

namespace Vn {

PxResultRequest::PxResultRequest(PxUPtr<PxResultProtocol> const& node, int state)
    : _node(node), _state(state) {
    VN_ASSERT(!node.isNull());
    VN_ASSERT(state == 0 || state == 1);
}

} // namespace Vn
