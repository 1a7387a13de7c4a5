#include "SnItemBasicImp.h"
#include "SnSelection.h"

namespace Vn {

template class SnItemBasic<std::string>;
template class SnItemConvert<std::string>;
template class SnIsItem<SnItemBasic<std::string>>;
template class SnItemBasic<RCShdPtr<SnSelection const>>;
template class SnItemConvert<RCShdPtr<SnSelection const>>;
template class SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection const>>>;
template class SnItemBasic<RCShdPtr<SnSelection>>;
template class SnItemConvert<RCShdPtr<SnSelection>>;
template class SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection>>>;

} // namespace Vn
