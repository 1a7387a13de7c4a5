#include "EngineSession.h"

#include "InBuildInfo.h"
#include "InPackageInit.h"

#include <exception>

namespace VnRender {

EngineSession::EngineSession(std::vector<std::string> arguments)
    : _uncaught(std::uncaught_exceptions()) {
    auto& mgr = Vn::InInitMgr::getInstance();
    mgr.setArguments(std::move(arguments));
    mgr.initialize();
    _startOrder = mgr.getInitializedNames();
}

EngineSession::~EngineSession() noexcept(false) {
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
