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

ExInvalidParameter::ExInvalidParameter(char const* file, int line, std::string reason)
    : ExBase(file, line) {
    setReason(std::move(reason));
}
ExInvalidParameter::~ExInvalidParameter() = default;

ExGraphTooDeep::ExGraphTooDeep(char const* file, int line, std::string reason)
    : ExBase(file, line) {
    setReason(std::move(reason));
}
ExGraphTooDeep::~ExGraphTooDeep() = default;

} // namespace Vn::PxEx
