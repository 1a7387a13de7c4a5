#pragma once

#include "PiToolInterface.h"
#include "VnExport.h"

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace Vn {

// What a tool controller's interface does: its declared policies and their resolution, its
// primary sockets, presets and resets. Reached through PiToolInterface.
class VN_EXPORT PiToolInterfaceImp final : public PiToolInterface::Imp,
                                           public PiNodeControllerManip {
public:
    explicit PiToolInterfaceImp(PiToolInterface& owner);
    ~PiToolInterfaceImp() override;

    // Installs the factory of implementations and the default policy of each socket type;
    // the table must be empty. finalize empties it.
    static void initialize();
    static void finalize();
    // The policy an input of the type gets when its tool declares none; null when none.
    static RCShdPtr<PiInputPolicy const> getDefaultPolicy(int socketType);

    RCShdPtr<PiInput> getPrimaryInput() const override;
    RCShdPtr<PiOutput> getPrimaryOutput() const override;
    void setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>> inputs) override;
    void setCurrentPreset(int index) override;
    void setCurrentPreset(std::string const& name) override;
    int getCurrentPreset() const override { return _currentPreset; }
    std::vector<std::string> const& getPresets() const override { return _presets; }
    void setPresets(std::vector<std::string> presets) override;
    void clearPresets() override;
    RCShdPtr<PiValueNode> getInputValueNode(PiInput const& input) const override;
    void reset() override;
    void reset(RCShdPtr<PiInput> const& input) override;
    std::string getInputPolicyKey(PiInput const& input) const override;
    RCShdPtr<PiInputPolicy const> getInputPolicy(PiInput const& input) const override;
    bool hasInputPolicy(std::string const& key) const override;
    bool hasInputPolicy(PiInput const& input) const override;
    void addInputPolicy(std::string const& key, RCShdPtr<PiInputPolicy const> policy) override;
    void replaceInputPolicy(std::string const& key, RCShdPtr<PiInputPolicy const> policy) override;

    void nodeCreated() override;
    void nodeLoaded() override;

    // How many inputs have a resolved policy remembered; for tests.
    std::size_t getCachedPolicyCount() const noexcept { return _resolved.size(); }

private:
    using PolicyMap = std::unordered_map<std::string, RCShdPtr<PiInputPolicy const>>;
    // Takes in the policies of the tool's description once the node is known; those added by
    // the controller before stay.
    PolicyMap const& policies() const;
    void resetOne(PiInput& input) const;

    PiToolInterface& _controller;
    mutable PolicyMap _policies;
    mutable std::map<int, RCShdPtr<PiInputPolicy const>> _resolved;
    std::vector<std::string> _presets;
    int _currentPreset = -1;
    Iterator<RCShdPtr<PiInput>> _inputsAddedOnRestore;
    mutable bool _described = false;
    bool _created = false;
};

} // namespace Vn
