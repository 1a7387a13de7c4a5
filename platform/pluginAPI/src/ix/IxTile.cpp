#include "IxTile.h"
#include "Assertions.h"
#include "IxMemResource.h"
#include "MbAlignment.h"

#include <atomic>
#include <climits>

namespace Vn {

IxTile const IxTile::INVALID_TILE;
constinit thread_local char const* IxTile::t_ownerName = "";

namespace {
std::atomic<IxMemResource*> s_resource{nullptr};
} // namespace

IxTile::IxTile(IxPixelFormat const& format, GeRectangle<int> const& region,
               CoRgbaColorTyped<float> const& fill)
    : _format(format), _region(region.isEmpty() ? GeRectangle<int>() : region), _fill(fill),
      _stride(computeLineStride(format, _region.width())), _owner(getCurrentTileOwnerName()) {
    VN_ASSERT(format.isValid());
    _memory = IxMemResource::getInstance().allocate(computeBufferSize(format, _region));
}

std::int32_t IxTile::computeLineStride(IxPixelFormat const& format, int width) {
    if (width <= 0)
        return 0;
    std::size_t const bytes = static_cast<std::size_t>(width) * format.getPixelSize();
    std::size_t const stride = MbAlignment::roundUp(bytes, MIN_LINE_ALIGN);
    VN_ASSERT(stride <= INT32_MAX);
    return static_cast<std::int32_t>(stride);
}

unsigned int IxTile::computeBufferSize(IxPixelFormat const& format,
                                       GeRectangle<int> const& region) {
    std::size_t const size = static_cast<std::size_t>(computeLineStride(format, region.width())) *
                             static_cast<std::size_t>(region.height());
    VN_ASSERT(size <= UINT_MAX);
    return static_cast<unsigned int>(size);
}

IxTile::OwnerNameScope::OwnerNameScope(char const* name) noexcept : _previous(t_ownerName) {
    t_ownerName = name ? name : "";
}

IxTile::OwnerNameScope::~OwnerNameScope() {
    t_ownerName = _previous;
}

IxMemory::Factory::~Factory() = default;

IxMemory::~IxMemory() = default;

IxMemResource::~IxMemResource() = default;

void IxMemResource::initialize(IxMemResource* resource) {
    VN_ASSERT(resource != nullptr);
    IxMemResource* expected = nullptr;
    if (!s_resource.compare_exchange_strong(expected, resource, std::memory_order_acq_rel)) {
        delete resource;
        VN_ASSERT(expected == nullptr);
    }
}

void IxMemResource::finalize() {
    delete s_resource.exchange(nullptr, std::memory_order_acq_rel);
}

IxMemResource& IxMemResource::getInstance() {
    IxMemResource* resource = s_resource.load(std::memory_order_acquire);
    VN_ASSERT(resource != nullptr);
    return *resource;
}

bool IxMemResource::isInitialized() noexcept {
    return s_resource.load(std::memory_order_acquire) != nullptr;
}

} // namespace Vn
