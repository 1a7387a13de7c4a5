#include "PxEx.h"

namespace Vn::PxEx {

ExRequestCancelled::ExRequestCancelled(char const* file, int line) : ExBase(file, line) {
    setReason("Request cancelled");
}
ExRequestCancelled::~ExRequestCancelled() = default;

ExRequestFailed::ExRequestFailed(char const* file, int line) : ExBase(file, line) {
    setReason("Request failed");
}
ExRequestFailed::~ExRequestFailed() = default;

} // namespace Vn::PxEx
