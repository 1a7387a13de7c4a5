#include "ObSubject.h"

namespace Vn {

ObSubjectAny::~ObSubjectAny() = default;

} // namespace Vn
