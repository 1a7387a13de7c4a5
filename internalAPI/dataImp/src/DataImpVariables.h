#pragma once

namespace Vn {

// The configuration file's name, from the package's setting.
char const* getConfigFileNameSetting();

} // namespace Vn
