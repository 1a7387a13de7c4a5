#pragma once

#include <string>
#include <typeinfo>

namespace Vn {

// The readable name of a type, as written in the sources.
std::string snTypeName(std::type_info const& type);

} // namespace Vn
