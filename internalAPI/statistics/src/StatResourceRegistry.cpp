#include "StatResourceRegistry.h"
#include "Assertions.h"
#include "StatEx.h"

#include <utility>
#include <vector>

namespace Vn {

namespace {
using Entries = std::vector<std::pair<std::string, StatContainerFactory*>>;
Entries* s_entries = nullptr;

Entries& entries() {
    VN_ASSERT(StatResourceRegistry::isInitialized());
    return *s_entries;
}

std::pair<std::string, StatContainerFactory*> const& entry(StatResourceType type) {
    Entries& all = entries();
    VN_ASSERT(type.isValid() && type.getId() < static_cast<int>(all.size()));
    return all[static_cast<std::size_t>(type.getId())];
}
} // namespace

void StatResourceRegistry::initialize() {
    VN_ASSERT(!isInitialized());
    s_entries = new Entries;
}

void StatResourceRegistry::finalize() {
    Entries* all = std::exchange(s_entries, nullptr);
    if (!all)
        return;
    for (auto& e : *all)
        delete e.second;
    delete all;
}

bool StatResourceRegistry::isInitialized() noexcept {
    return s_entries != nullptr;
}

StatResourceType StatResourceRegistry::registerResourceType(std::string const& name,
                                                            OPtr<StatContainerFactory> factory) {
    VN_ASSERT(!factory.isNull());
    Entries& all = entries();
    for (auto const& e : all)
        if (e.first == name)
            throw StatExExist(__FILE__, __LINE__, name);
    all.emplace_back(name, factory.get());
    factory.release();
    return StatResourceType(static_cast<int>(all.size()) - 1);
}

StatResourceType StatResourceRegistry::getResourceType(std::string const& name) {
    Entries const& all = entries();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].first == name)
            return StatResourceType(static_cast<int>(i));
    throw StatExNotFound(__FILE__, __LINE__, name);
}

std::string const& StatResourceRegistry::getTypeName(StatResourceType type) {
    return entry(type).first;
}

UPtr<StatContainerFactory> StatResourceRegistry::getContainerFactory(StatResourceType type) {
    return entry(type).second;
}

int StatResourceRegistry::getNbResources() {
    return static_cast<int>(entries().size());
}

} // namespace Vn
