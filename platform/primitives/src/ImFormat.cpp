#include "ImFormat.h"

namespace Vn {

ImMemory::Factory::~Factory() = default;

namespace {
class DefaultFactory final : public ImMemory::Factory {
public:
    ImImage create(ImLayout const& layout) const override {
        return ImImage::create(layout, "ImMemory");
    }
};
} // namespace

ImMemory::Factory const& ImMemory::getDefaultFactory() {
    static DefaultFactory const factory;
    return factory;
}

} // namespace Vn
