#pragma once

#include "LiString.h"
#include "RCBase.h"
#include "SnIsItem.h"
#include "SnItemBasic.h"
#include "VnExport.h"

namespace Vn {

class PiDndTool;
class PiDndToolPreset;
class PiFileDndInterface;
class PiNodeDndInterface;
class PiTool;
class TmKeyframe;
class TmTimeCurve;

// The item types of the things a selection names beside texts and selections: texts of the
// system's own string type (equal when their texts are), tools, dragged tools and presets,
// dragged files, keys and curves (equal when they are the same object). Items of a pointer
// payload pass their predicate only with a non-null payload.
extern template class VN_EXPORT SnItemBasic<LiString>;
extern template class VN_EXPORT SnItemConvert<LiString>;
extern template class VN_EXPORT SnIsItem<SnItemBasic<LiString>>;

#define VN_SN_POINTER_PAYLOAD(T)                                                                   \
    extern template class VN_EXPORT SnItemBasic<RCShdPtr<T>>;                                      \
    extern template class VN_EXPORT SnItemConvert<RCShdPtr<T>>;                                    \
    extern template class VN_EXPORT SnIsItemDataNonNull<SnItemBasic<RCShdPtr<T>>>;

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
