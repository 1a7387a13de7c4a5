#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace VnRender {

// Starts the engine's packages and installs the user's settings for the life of the object;
// takes them away and stops the packages on destruction.
class EngineSession {
public:
    explicit EngineSession(std::vector<std::string> arguments);
    EngineSession(EngineSession const&) = delete;
    EngineSession& operator=(EngineSession const&) = delete;
    ~EngineSession() noexcept(false);

    std::vector<std::string> const& getStartOrder() const { return _startOrder; }
    // Build information of every library that registered it, one line each.
    void printBuildInfo(std::ostream& out) const;

private:
    std::vector<std::string> _startOrder;
    int _uncaught;
};

} // namespace VnRender
