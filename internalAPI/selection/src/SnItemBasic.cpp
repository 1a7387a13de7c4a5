#include "SnItemBasicImp.h"

#include "PiDndTool.h"
#include "PiDndToolPreset.h"
#include "PiFileDndInterface.h"
#include "PiNodeDndInterface.h"
#include "PiTool.h"
#include "SnItemPayloads.h"
#include "SnSelection.h"
#include "TmKeyframe.h"
#include "TmTimeCurve.h"

namespace Vn {

template class SnItemBasic<std::string>;
template class SnItemConvert<std::string>;
template class SnIsItem<SnItemBasic<std::string>>;
template class SnItemBasic<LiString>;
template class SnItemConvert<LiString>;
template class SnIsItem<SnItemBasic<LiString>>;

#define VN_SN_POINTER_PAYLOAD(T)                                                                   \
    template class SnItemBasic<RCShdPtr<T>>;                                                       \
    template class SnItemConvert<RCShdPtr<T>>;                                                     \
    template class SnIsItemDataNonNull<SnItemBasic<RCShdPtr<T>>>;

VN_SN_POINTER_PAYLOAD(SnSelection const)
VN_SN_POINTER_PAYLOAD(SnSelection)
VN_SN_FOR_EACH_POINTER_PAYLOAD(VN_SN_POINTER_PAYLOAD)

#undef VN_SN_POINTER_PAYLOAD

} // namespace Vn
