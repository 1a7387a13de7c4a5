#pragma once

#include "HoProjectSettings.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace VnRender {

// Starts the engine's packages and installs the user's and the project's settings for the life
// of the object; takes them away and stops the packages on destruction.
class EngineSession {
public:
    // Changes the configuration's project settings for this run.
    using ProjectOverrides = std::function<void(Vn::HoProjectSettings::Values&)>;
    // Raises ExBase, with nothing left started, when the configuration cannot be read.
    explicit EngineSession(std::vector<std::string> arguments,
                           ProjectOverrides const& overrides = {});
    EngineSession(EngineSession const&) = delete;
    EngineSession& operator=(EngineSession const&) = delete;
    ~EngineSession() noexcept(false);

    std::vector<std::string> const& getStartOrder() const { return _startOrder; }
    // Build information of every library that registered it, one line each.
    void printBuildInfo(std::ostream& out) const;

private:
    // Undoes the start when it fails halfway.
    void stop();

    std::vector<std::string> _startOrder;
    int _uncaught;
};

} // namespace VnRender
