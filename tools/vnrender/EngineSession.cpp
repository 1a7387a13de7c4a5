#include "EngineSession.h"

#include "HoImageFiles.h"
#include "HoProjectSettings.h"
#include "HoRender.h"
#include "HoToolRegistry.h"
#include "HoTools.h"
#include "HoUserSettings.h"
#include "InBuildInfo.h"
#include "InPackageInit.h"

#include <exception>

namespace VnRender {

EngineSession::EngineSession(std::vector<std::string> arguments, ProjectOverrides const& overrides)
    : _uncaught(std::uncaught_exceptions()) {
    auto& mgr = Vn::InInitMgr::getInstance();
    mgr.setArguments(std::move(arguments));
    mgr.initialize();
    _startOrder = mgr.getInitializedNames();
    // A settings file that cannot be read is logged by the install, and the defaults serve.
    (void)Vn::HoUserSettings::install();
    // The application's tools, as compositions name them.
    Vn::HoTools::registerTools(Vn::HoToolRegistry::initialize());
    Vn::HoNumberedSequence::registerKind();
    // The project's defaults come from the configuration, then from the command line.
    try {
        Vn::HoProjectSettings::Values values = Vn::HoProjectSettings::fromConfiguration();
        if (overrides)
            overrides(values);
        Vn::HoProjectSettings::install(values);
    } catch (Vn::ExBase const& e) {
        stop();
        // The user's to mend: the reason alone, not where the library raised it.
        throw Vn::HoRenderError(__FILE__, __LINE__, e.getReason());
    } catch (...) {
        stop();
        throw;
    }
}

void EngineSession::stop() {
    Vn::HoToolRegistry::finalize();
    Vn::HoUserSettings::uninstall();
    Vn::InInitMgr::getInstance().finalize();
}

EngineSession::~EngineSession() noexcept(false) {
    Vn::HoProjectSettings::uninstall();
    Vn::HoToolRegistry::finalize();
    Vn::HoUserSettings::uninstall();
    // While another failure unwinds, a second one from stopping would end the process.
    if (std::uncaught_exceptions() > _uncaught) {
        try {
            Vn::InInitMgr::getInstance().finalize();
        } catch (...) {
        }
        return;
    }
    Vn::InInitMgr::getInstance().finalize();
}

void EngineSession::printBuildInfo(std::ostream& out) const {
    for (auto const& name : Vn::InBuildInfoUtil::getLibraryNames())
        if (auto const* info = Vn::InBuildInfoUtil::findInfo(name))
            out << info->describe() << "\n";
}

} // namespace VnRender
