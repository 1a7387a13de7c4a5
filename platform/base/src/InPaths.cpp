#include "InPaths.h"

#include <cstdlib>
#include <unistd.h>

namespace Vn {

std::string InPaths::getResourcesDir() {
    if (char const* dir = std::getenv("VN_RESOURCES_DIR"); dir && *dir)
        return dir;
    std::string exe(4096, '\0');
    ssize_t const n = ::readlink("/proc/self/exe", exe.data(), exe.size());
    if (n <= 0 || static_cast<std::size_t>(n) >= exe.size())
        return {};
    exe.resize(static_cast<std::size_t>(n));
    std::size_t const slash = exe.rfind('/');
    return slash == std::string::npos ? std::string() : exe.substr(0, slash == 0 ? 1 : slash);
}

} // namespace Vn
