#include "SnTypeName.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace Vn {

std::string snTypeName(std::type_info const& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return name && status == 0 ? std::string(name.get()) : std::string(type.name());
}

} // namespace Vn
