#include "PiTool.h"

#include "ExBase.h"
#include "PiNodeController.h"
#include "PiToolInterface.h"
#include "PiTopologyInterface.h"
#include "PiValueChangeInterface.h"

#include <algorithm>
#include <typeinfo>

namespace Vn {

PiStructuredPolicyDescriptor::PiStructuredPolicyDescriptor() = default;
PiStructuredPolicyDescriptor::~PiStructuredPolicyDescriptor() = default;

void PiStructuredPolicyDescriptor::checkName(std::string const& name,
                                             std::vector<std::string> const& taken) {
    if (name.empty())
        VN_THROW_MSG(ExBase, "a tool socket or value needs a name");
    if (name.find('.') != std::string::npos)
        VN_THROW_MSG(ExBase, "the socket name \"" + name + "\" contains \".\"");
    if (std::find(taken.begin(), taken.end(), name) != taken.end())
        VN_THROW_MSG(ExBase, "the name \"" + name + "\" is declared twice");
}

std::vector<std::string> PiStructuredPolicyDescriptor::inputNames() const {
    std::vector<std::string> names;
    for (Input const& i : _inputs)
        names.push_back(i.name);
    return names;
}

void PiStructuredPolicyDescriptor::require(std::string const& name, int type,
                                           RCShdPtr<PiInputPolicy const> policy,
                                           PiSocketType::Cardinality cardinality) {
    checkName(name, inputNames());
    if (!PiSocketType::isKnownType(type) || type == PiSocketType::NONE)
        VN_THROW_MSG(ExBase,
                     "the input \"" + name + "\" has the unknown type " + std::to_string(type));
    if (cardinality < PiSocketType::SINGLE || cardinality > PiSocketType::MULTIVALUED)
        VN_THROW_MSG(ExBase, "the input \"" + name + "\" has an unknown cardinality");
    _inputs.push_back(Input{name, PiSocketType(type, cardinality), std::move(policy), nullptr});
}

PiStructuredPolicyDescriptor&
PiStructuredPolicyDescriptor::requireStructured(std::string const& name,
                                                PiSocketType::Cardinality cardinality) {
    checkName(name, inputNames());
    if (cardinality == PiSocketType::COMPOSITE)
        VN_THROW_MSG(ExBase, "the structured input \"" + name + "\" cannot be composite");
    auto sub = std::make_shared<PiStructuredPolicyDescriptor>();
    _inputs.push_back(Input{name, PiSocketType(PiSocketType::NONE, cardinality), {}, sub});
    return *sub;
}

void PiToolPolicyDescriptor::produces(std::string const& name, int type) {
    std::vector<std::string> names;
    for (Output const& o : _outputs)
        names.push_back(o.name);
    checkName(name, names);
    if (!PiSocketType::isKnownType(type) || type == PiSocketType::NONE)
        VN_THROW_MSG(ExBase,
                     "the output \"" + name + "\" has the unknown type " + std::to_string(type));
    _outputs.push_back(Output{name, PiSocketType(type)});
}

void PiToolPolicyDescriptor::stores(std::string const& name, PiValueType type) {
    std::vector<std::string> names;
    for (Value const& v : _values)
        names.push_back(v.name);
    checkName(name, names);
    if (!PiValue::isKnownType(static_cast<int>(type)))
        VN_THROW_MSG(ExBase, "the stored value \"" + name + "\" has an unknown type");
    _values.push_back(Value{name, type});
}

PiToolProtocol::~PiToolProtocol() = default;

std::string PiToolProtocol::getFullName() const {
    return getManufacturer().empty() ? getName() : getManufacturer() + " " + getName();
}

namespace {
class PlainToolController final : public PiTopologyInterface,
                                  public PiValueChangeInterface,
                                  public PiToolInterface {};
// The graph model without the tool framework, as archive checks use it.
class BareToolController final : public PiTopologyInterface, public PiValueChangeInterface {};
} // namespace

RCShdPtr<PiNodeController> PiToolProtocol::createController() const {
    if (!PiToolInterface::hasImplementationFactory())
        return RCShdPtr<PiNodeController>(new BareToolController);
    return RCShdPtr<PiNodeController>(new PlainToolController);
}

PiToolProtocolImp::PiToolProtocolImp(std::string name, std::string category, std::string version,
                                     std::string manufacturer)
    : _name(std::move(name)), _category(std::move(category)), _version(std::move(version)),
      _manufacturer(std::move(manufacturer)) {}

PiToolProtocolImp::~PiToolProtocolImp() = default;

PiTool::PiTool(RCShdPtr<PiToolProtocol const> protocol) : _protocol(std::move(protocol)) {
    if (!_protocol)
        VN_THROW_MSG(ExBase, "a tool needs a protocol");
    if (_protocol->getName().empty())
        VN_THROW_MSG(ExBase, "a tool needs a name");
    _protocol->describe(_descriptor);
}

PiTool::~PiTool() = default;

} // namespace Vn
