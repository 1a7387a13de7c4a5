#include "InVariable.h"
#include "InPackageInit.h"

#include <cstdlib>

namespace Vn {

InContextAlias::~InContextAlias() = default;

bool InInitArg::lookup(std::string& out) const {
    bool found = false;
    for (auto const& arg : InInitMgr::getInstance().getArguments()) {
        if (arg.compare(0, _prefix.size(), _prefix) == 0) {
            out = arg.substr(_prefix.size());
            found = true;
        }
    }
    return found;
}
std::unique_ptr<InContextAlias> InInitArg::clone() const {
    return std::make_unique<InInitArg>(*this);
}

bool InInitEnv::lookup(std::string& out) const {
    char const* v = std::getenv(_variable.c_str());
    if (!v)
        return false;
    out = v;
    return true;
}
std::unique_ptr<InContextAlias> InInitEnv::clone() const {
    return std::make_unique<InInitEnv>(*this);
}

bool InInitDef::lookup(std::string& out) const {
    out = _value;
    return true;
}
std::unique_ptr<InContextAlias> InInitDef::clone() const {
    return std::make_unique<InInitDef>(*this);
}

InVariableBase::InVariableBase(char const* name, InPackageInit* package)
    : _name(name ? name : ""), _package(package) {
    if (_package)
        _package->addDependency(this);
}

InVariableBase::~InVariableBase() {
    if (_package)
        _package->removeDependency(this);
}

InVariable<char const*>::~InVariable() = default;

char const* InVariable<char const*>::getValue() const {
    for (auto const& a : _aliases)
        if (a->lookup(_value))
            return _value.c_str();
    return nullptr;
}

} // namespace Vn
