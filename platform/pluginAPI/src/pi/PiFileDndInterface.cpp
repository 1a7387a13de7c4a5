#include "PiFileDndInterface.h"

namespace Vn {

PiFileDndInterface::~PiFileDndInterface() = default;

} // namespace Vn
