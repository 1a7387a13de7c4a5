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
VN_SN_POINTER_PAYLOAD(PiTool const)
VN_SN_POINTER_PAYLOAD(PiDndTool const)
VN_SN_POINTER_PAYLOAD(PiDndToolPreset const)
VN_SN_POINTER_PAYLOAD(PiFileDndInterface const)
VN_SN_POINTER_PAYLOAD(PiNodeDndInterface const)
VN_SN_POINTER_PAYLOAD(PiNodeDndInterface)
VN_SN_POINTER_PAYLOAD(TmKeyframe)
VN_SN_POINTER_PAYLOAD(TmTimeCurve)

#undef VN_SN_POINTER_PAYLOAD

} // namespace Vn
