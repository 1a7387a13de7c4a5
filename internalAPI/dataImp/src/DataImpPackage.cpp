#include "DataImpInit.h"
#include "DataImpVariables.h"
#include "InPackageInit.h"
#include "InVariable.h"
#include "PiAutosaveUtil.h"
#include "PiConfigFile.h"
#include "ResmgtInit.h"

namespace Vn {

template <>
InInit<VnInit::dataImp>::InInit() : InPackageInit("dataImp") {
    registerPackage();
    addDependencies<VnInit::resmgt, VnInit::base>();
}

template <>
void InInit<VnInit::dataImp>::initialize() {
    PiAutosaveUtil::initialize();
}

template <>
void InInit<VnInit::dataImp>::finalize() {
    PiConfigFile::unload();
}

namespace {
InInit<VnInit::dataImp> s_package;
InVariable<char const*> s_configFileName("quoin::deployment::configFileName", &s_package,
                                         InInitArg("config:"), InInitEnv("VN_CONFIG_FILE_NAME"),
                                         InInitDef("config.xml"));
} // namespace

char const* getConfigFileNameSetting() {
    return s_configFileName.getValue();
}

} // namespace Vn
