#pragma once

#include "Iterator.h"
#include "OPtr.h"
#include "PiInputPolicy.h"
#include "PiNodeController.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

// The mix-in of a tool node's controller: the tool's input policies, its primary sockets, the
// presets the node was last loaded from, and resets to the policies' defaults. The work is
// done by an implementation object that the tool framework supplies.
class VN_EXPORT PiToolInterface : public virtual PiNodeController {
public:
    // setCurrentPreset by name keeps at most this many names.
    static constexpr int MAX_PRESETS = 4;

    class VN_EXPORT Imp : public PiNodeController::LifeHook {
    public:
        ~Imp() override;
        virtual RCShdPtr<PiInput> getPrimaryInput() const = 0;
        virtual RCShdPtr<PiOutput> getPrimaryOutput() const = 0;
        virtual void setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>> inputs) = 0;
        virtual void setCurrentPreset(int index) = 0;
        virtual void setCurrentPreset(std::string const& name) = 0;
        virtual int getCurrentPreset() const = 0;
        virtual std::vector<std::string> const& getPresets() const = 0;
        virtual void setPresets(std::vector<std::string> presets) = 0;
        virtual void clearPresets() = 0;
        virtual RCShdPtr<PiValueNode> getInputValueNode(PiInput const& input) const = 0;
        virtual void reset() = 0;
        virtual void reset(RCShdPtr<PiInput> const& input) = 0;
        virtual std::string getInputPolicyKey(PiInput const& input) const = 0;
        virtual RCShdPtr<PiInputPolicy const> getInputPolicy(PiInput const& input) const = 0;
        virtual bool hasInputPolicy(std::string const& key) const = 0;
        virtual bool hasInputPolicy(PiInput const& input) const = 0;
        virtual void addInputPolicy(std::string const& key,
                                    RCShdPtr<PiInputPolicy const> policy) = 0;
        virtual void replaceInputPolicy(std::string const& key,
                                        RCShdPtr<PiInputPolicy const> policy) = 0;
    };
    using ImpFactory = OPtr<Imp> (*)(PiToolInterface& owner);

    // Installed by the tool framework at its start; null at its end.
    static void setImplementationFactory(ImpFactory factory);
    static bool hasImplementationFactory() noexcept;

    // Raises ExBase when the tool framework has not started.
    PiToolInterface();
    ~PiToolInterface() override;

    // The primary sockets that the tool's protocol names; for a multivalued input its first
    // value. Null when there is no tool, no such socket or no value.
    virtual RCShdPtr<PiInput> getPrimaryInput() const { return _imp->getPrimaryInput(); }
    virtual RCShdPtr<PiInput> getPrimaryInput() { return _imp->getPrimaryInput(); }
    virtual RCShdPtr<PiOutput> getPrimaryOutput() const { return _imp->getPrimaryOutput(); }
    virtual RCShdPtr<PiOutput> getPrimaryOutput() { return _imp->getPrimaryOutput(); }
    // Inputs that the archive a node was restored from did not know: reset to their defaults
    // once the node is loaded.
    virtual void setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>> inputs);
    // An index beyond the list makes no preset current. Signals PresetChanged either way.
    virtual void setCurrentPreset(int index) { _imp->setCurrentPreset(index); }
    // Selects the name, adding it at the end first when it is new (dropping the oldest once
    // the list is full). Signals PresetChanged.
    virtual void setCurrentPreset(std::string const& name) { _imp->setCurrentPreset(name); }
    // -1 when no preset is current.
    virtual int getCurrentPreset() const { return _imp->getCurrentPreset(); }
    virtual std::vector<std::string> const& getPresets() const { return _imp->getPresets(); }
    // Replaces the list; the current index stays only while it names a preset.
    virtual void setPresets(std::vector<std::string> presets);
    virtual void clearPresets() { _imp->clearPresets(); }
    // The value node that feeds the input; null when none does.
    virtual RCShdPtr<PiValueNode> getInputValueNode(PiInput const& input) const {
        return _imp->getInputValueNode(input);
    }
    // Every input, or one, back to its policy's default.
    virtual void reset() { _imp->reset(); }
    virtual void reset(RCShdPtr<PiInput> const& input) { _imp->reset(input); }
    void reset(std::string const& inputName);
    // The name under which the tool declares the input's policy: the dotted path of names
    // from the node, elements of lists standing for their list.
    virtual std::string getInputPolicyKey(PiInput const& input) const {
        return _imp->getInputPolicyKey(input);
    }

    // The current preset's name; empty when none.
    std::string getCurrentPresetName() const;
    // The tool of the controlled node; null while there is no node. A node without a tool is
    // an assertion failure.
    RCShdPtr<PiTool const> getTool() const;
    // The policy the tool declares for the input, else the default of its type; null when
    // neither exists.
    RCShdPtr<PiInputPolicy const> getInputPolicy(PiInput const& input) const {
        return _imp->getInputPolicy(input);
    }
    bool hasInputPolicy(std::string const& keyOrInputName) const;
    bool hasInputPolicy(PiInput const& input) const { return _imp->hasInputPolicy(input); }
    // Adding requires a new key; replacing overwrites. Both forget every resolved policy.
    void addInputPolicy(std::string const& key, RCShdPtr<PiInputPolicy const> policy);
    void addInputPolicy(PiInput const& input, RCShdPtr<PiInputPolicy const> policy);
    void replaceInputPolicy(std::string const& key, RCShdPtr<PiInputPolicy const> policy);
    void replaceInputPolicy(PiInput const& input, RCShdPtr<PiInputPolicy const> policy);

    Imp& getImp() const noexcept { return *_imp; }

private:
    OPtr<Imp> _imp;
};

} // namespace Vn
