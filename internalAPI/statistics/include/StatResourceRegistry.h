#pragma once

#include "OPtr.h"
#include "StatContainerFactory.h"
#include "StatResourceType.h"
#include "UPtr.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The statistic kinds, each a name and the factory of its containers. A kind's id is its place
// in the order of registration. Kinds are registered during start-up on one thread and only
// read afterwards, so nothing here takes a lock.
class VN_EXPORT StatResourceRegistry {
public:
    static void initialize();
    // Deletes the factories and forgets every kind.
    static void finalize();
    static bool isInitialized() noexcept;

    // Raises StatExExist when the name is taken; the registry is then unchanged.
    static StatResourceType registerResourceType(std::string const& name,
                                                 OPtr<StatContainerFactory> factory);
    // Raises StatExNotFound for a name not registered.
    static StatResourceType getResourceType(std::string const& name);
    // These take a valid id of a registered kind.
    static std::string const& getTypeName(StatResourceType type);
    static UPtr<StatContainerFactory> getContainerFactory(StatResourceType type);
    static int getNbResources();
};

} // namespace Vn
