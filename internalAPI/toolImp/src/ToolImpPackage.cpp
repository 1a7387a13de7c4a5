#include "DataImpInit.h"
#include "ImageImpInit.h"
#include "ImageModifierImp.h"
#include "InPackageInit.h"
#include "IxConvertServices.h"
#include "PiImageRepeatNode.h"
#include "PiInputPolicies.h"
#include "PiNodeTopologies.h"
#include "PiPixelLoopImp.h"
#include "PiProcNodeFactory.h"
#include "PiToolInterfaceImp.h"
#include "PiToolTopologyInterfaceImp.h"
#include "PrimitivesImpInit.h"
#include "ProcImpInit.h"
#include "PxConfig.h"
#include "ResmgtInit.h"
#include "SelectionInit.h"
#include "TimeImpInit.h"
#include "ToolImpInit.h"

namespace Vn {

template <>
InInit<VnInit::toolImp>::InInit() : InPackageInit("toolImp") {
    registerPackage();
    addDependencies<VnInit::timeImp, VnInit::dataImp, VnInit::procImp, VnInit::selection,
                    VnInit::primitivesImp, VnInit::imageImp, VnInit::pluginAPI, VnInit::primitives,
                    VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::toolImp>::initialize() {
    PiToolInterfaceImp::initialize();
    PiToolTopologyInterfaceImp::initialize();
    PiNodeTopologies::initialize();
    PiProcNodeFactory::initializeValueFactories();
    PiProcNodeFactory::initializeImageFactory();
    PiProcNodeFactory::initializeSceneFactories();
    PiInputPolicies::initialize();
    PiPixelLoopImp::initialize();
    ImageModifierImp::initialize();
    PiImageRepeatNode::initializeRepeatModes();
}

template <>
void InInit<VnInit::toolImp>::finalize() {
    PiImageRepeatNode::finalizeRepeatModes();
    ImageModifierImp::finalize();
    PiPixelLoopImp::finalize();
    PiInputPolicies::finalize();
    PiProcNodeFactory::finalize();
    PiNodeTopologies::finalize();
    PiToolTopologyInterfaceImp::finalize();
    PiToolInterfaceImp::finalize();
}

namespace {
InInit<VnInit::toolImp> s_package;
}

} // namespace Vn
