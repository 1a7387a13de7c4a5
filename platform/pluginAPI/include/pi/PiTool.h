#pragma once

#include "LkCounter.h"
#include "PiInputPolicy.h"
#include "PiSocketType.h"
#include "PiValue.h"
#include "RCBase.h"
#include "VnExport.h"

#include <memory>
#include <string>
#include <vector>

namespace Vn {

class PiNodeController;

// The inputs of a tool or of one of its structured inputs, in order.
class VN_EXPORT PiStructuredPolicyDescriptor {
public:
    struct VN_EXPORT Input {
        std::string name;
        PiSocketType type;
        RCShdPtr<PiInputPolicy const> policy;
        // Set for a structured input.
        std::shared_ptr<PiStructuredPolicyDescriptor> structure;
    };

    PiStructuredPolicyDescriptor();
    virtual ~PiStructuredPolicyDescriptor();

    // Declares an input; for cardinality COMPOSITE or MULTIVALUED it holds inputs of the type.
    void require(std::string const& name, int type, RCShdPtr<PiInputPolicy const> policy = {},
                 PiSocketType::Cardinality cardinality = PiSocketType::SINGLE);
    // Declares a structured input and gives the description of its sub-inputs. With
    // MULTIVALUED the input holds a list of such structures, each an element of its own.
    PiStructuredPolicyDescriptor&
    requireStructured(std::string const& name,
                      PiSocketType::Cardinality cardinality = PiSocketType::SINGLE);
    std::vector<Input> const& getInputs() const noexcept { return _inputs; }

protected:
    // Raises ExBase for an empty name, a name with ".", or a name already declared.
    static void checkName(std::string const& name, std::vector<std::string> const& taken);
    std::vector<std::string> inputNames() const;

private:
    std::vector<Input> _inputs;
};

// What a tool's protocol fills in: inputs, outputs and stored values.
class VN_EXPORT PiToolPolicyDescriptor : public PiStructuredPolicyDescriptor {
public:
    struct VN_EXPORT Output {
        std::string name;
        PiSocketType type;
    };
    struct VN_EXPORT Value {
        std::string name;
        PiValueType type;
    };

    void produces(std::string const& name, int type);
    void stores(std::string const& name, PiValueType type);
    std::vector<Output> const& getOutputs() const noexcept { return _outputs; }
    std::vector<Value> const& getValues() const noexcept { return _values; }

private:
    std::vector<Output> _outputs;
    std::vector<Value> _values;
};

// A tool author's description of a tool, and the maker of its controllers.
class VN_EXPORT PiToolProtocol : public RCBase<LkCounter<int>> {
public:
    ~PiToolProtocol() override;
    virtual std::string const& getName() const = 0;
    virtual std::string const& getCategory() const = 0;
    virtual std::string const& getManufacturer() const = 0;
    // Dotted decimal numbers, "1.2.0".
    virtual std::string const& getVersion() const = 0;
    // The manufacturer, one blank and the name, or the name alone without a manufacturer.
    std::string getFullName() const;
    virtual void describe(PiToolPolicyDescriptor& descriptor) const = 0;
    // The names of the primary sockets; empty when the tool has none.
    virtual std::string getPrimaryInput() const { return {}; }
    virtual std::string getPrimaryOutput() const { return {}; }
    virtual bool isInternal() const { return false; }
    virtual bool isActive() const { return true; }
    // A new controller for a node of this tool; a plain one by default.
    virtual RCShdPtr<PiNodeController> createController() const;
};

// A protocol that keeps its names.
class VN_EXPORT PiToolProtocolImp : public PiToolProtocol {
public:
    PiToolProtocolImp(std::string name, std::string category, std::string version,
                      std::string manufacturer = {});
    ~PiToolProtocolImp() override;
    std::string const& getName() const override { return _name; }
    std::string const& getCategory() const override { return _category; }
    std::string const& getManufacturer() const override { return _manufacturer; }
    std::string const& getVersion() const override { return _version; }

private:
    std::string _name, _category, _version, _manufacturer;
};

// A registered tool: its protocol and the description the protocol gave, checked once.
class VN_EXPORT PiTool : public RCBase<LkCounter<int>> {
public:
    // Raises ExBase when the description is not sound (names, types).
    explicit PiTool(RCShdPtr<PiToolProtocol const> protocol);
    ~PiTool() override;

    PiToolProtocol const& getProtocol() const noexcept { return *_protocol; }
    PiToolPolicyDescriptor const& getDescriptor() const noexcept { return _descriptor; }
    std::string const& getName() const { return _protocol->getName(); }
    std::string getFullName() const { return _protocol->getFullName(); }
    std::string const& getVersion() const { return _protocol->getVersion(); }

private:
    RCShdPtr<PiToolProtocol const> _protocol;
    PiToolPolicyDescriptor _descriptor;
};

} // namespace Vn
