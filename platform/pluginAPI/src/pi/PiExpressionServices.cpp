#include "PiExpressionServices.h"

#include "ExBase.h"

namespace Vn {

namespace {
OPtr<PiExpressionServices>& installed() {
    static OPtr<PiExpressionServices> s;
    return s;
}
} // namespace

PiExpressionServices::~PiExpressionServices() = default;

bool PiExpressionServices::isInitialized() noexcept {
    return static_cast<bool>(installed());
}

PiExpressionServices& PiExpressionServices::getInstance() {
    if (!installed())
        VN_THROW_MSG(ExBase, "no expression services are installed");
    return *installed();
}

void PiExpressionServices::setInstance(OPtr<PiExpressionServices> services) {
    installed() = std::move(services);
}

} // namespace Vn
