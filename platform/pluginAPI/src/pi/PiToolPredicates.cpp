#include "PiToolPredicates.h"

namespace Vn {

namespace {
bool anyInputOfType(PiStructuredPolicyDescriptor const& d, int type) {
    for (auto const& in : d.getInputs())
        if (in.type.getType() == type || (in.structure && anyInputOfType(*in.structure, type)))
            return true;
    return false;
}
} // namespace

PiToolPredicates::Predicate PiToolPredicates::hasInputOfType(PiSocketType const& type) {
    return Predicate::fromFunction([code = type.getType()](ToolPtr const& t) {
        return t && anyInputOfType(t->getDescriptor(), code);
    });
}

PiToolPredicates::Predicate PiToolPredicates::hasOutputOfType(PiSocketType const& type) {
    return Predicate::fromFunction(
        [type](ToolPtr const& t) { return findFirstOutputSocketOfType(t, type) >= 0; });
}

PiToolPredicates::Predicate PiToolPredicates::isActive() {
    return Predicate::fromFunction(
        [](ToolPtr const& t) { return t && t->getProtocol().isActive(); });
}

PiToolPredicates::Predicate PiToolPredicates::isInternal() {
    return Predicate::fromFunction(
        [](ToolPtr const& t) { return t && t->getProtocol().isInternal(); });
}

PiToolPredicates::Predicate PiToolPredicates::isCategory(std::string const& category) {
    return Predicate::fromFunction(
        [category](ToolPtr const& t) { return t && t->getProtocol().getCategory() == category; });
}

int PiToolPredicates::findFirstInputSocketOfType(ToolPtr const& tool, PiSocketType const& type) {
    if (!tool)
        return -1;
    auto const& inputs = tool->getDescriptor().getInputs();
    for (std::size_t i = 0; i < inputs.size(); ++i)
        if (inputs[i].type.getType() == type.getType())
            return static_cast<int>(i);
    return -1;
}

int PiToolPredicates::findFirstOutputSocketOfType(ToolPtr const& tool, PiSocketType const& type) {
    if (!tool)
        return -1;
    auto const& outputs = tool->getDescriptor().getOutputs();
    for (std::size_t i = 0; i < outputs.size(); ++i)
        if (outputs[i].type.getType() == type.getType())
            return static_cast<int>(i);
    return -1;
}

} // namespace Vn
