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

// The pointer payloads above, each given to X: the one list that declares, instantiates and
// starts their item types.
#define VN_SN_FOR_EACH_POINTER_PAYLOAD(X)                                                          \
    X(PiTool const)                                                                                \
    X(PiDndTool const)                                                                             \
    X(PiDndToolPreset const)                                                                       \
    X(PiFileDndInterface const)                                                                    \
    X(PiNodeDndInterface const)                                                                    \
    X(PiNodeDndInterface)                                                                          \
    X(TmKeyframe)                                                                                  \
    X(TmTimeCurve)

#define VN_SN_EXTERN_POINTER_PAYLOAD(T)                                                            \
    extern template class VN_EXPORT SnItemBasic<RCShdPtr<T>>;                                      \
    extern template class VN_EXPORT SnItemConvert<RCShdPtr<T>>;                                    \
    extern template class VN_EXPORT SnIsItemDataNonNull<SnItemBasic<RCShdPtr<T>>>;

VN_SN_FOR_EACH_POINTER_PAYLOAD(VN_SN_EXTERN_POINTER_PAYLOAD)

#undef VN_SN_EXTERN_POINTER_PAYLOAD

} // namespace Vn
