#pragma once

#include "VnExport.h"

#include <memory>
#include <string>
#include <vector>

namespace Vn {

class InPackageInit;

// One source of a setting's value.
class VN_EXPORT InContextAlias {
public:
    virtual ~InContextAlias();
    // True, with the value in `out`, when this source has a value.
    virtual bool lookup(std::string& out) const = 0;
    virtual std::unique_ptr<InContextAlias> clone() const = 0;
};

// A command-line argument that begins with a prefix such as "config:"; the value is the rest.
// The last matching argument wins.
class VN_EXPORT InInitArg : public InContextAlias {
public:
    explicit InInitArg(char const* prefix) : _prefix(prefix ? prefix : "") {}
    bool lookup(std::string& out) const override;
    std::unique_ptr<InContextAlias> clone() const override;

private:
    std::string _prefix;
};

// An environment variable; set but empty counts as a value.
class VN_EXPORT InInitEnv : public InContextAlias {
public:
    explicit InInitEnv(char const* variable) : _variable(variable ? variable : "") {}
    bool lookup(std::string& out) const override;
    std::unique_ptr<InContextAlias> clone() const override;

private:
    std::string _variable;
};

// A fixed default.
class VN_EXPORT InInitDef : public InContextAlias {
public:
    explicit InInitDef(char const* value) : _value(value ? value : "") {}
    bool lookup(std::string& out) const override;
    std::unique_ptr<InContextAlias> clone() const override;

private:
    std::string _value;
};

// A named setting of a package. It registers with its package, which lists its settings.
class VN_EXPORT InVariableBase {
public:
    InVariableBase(char const* name, InPackageInit* package);
    InVariableBase(InVariableBase const&) = delete;
    InVariableBase& operator=(InVariableBase const&) = delete;
    virtual ~InVariableBase();
    std::string const& getName() const noexcept { return _name; }

private:
    std::string _name;
    InPackageInit* _package;
};

template <class T>
class InVariable;

// A text setting whose value comes from the first of its sources, in the order given, that has
// one. The sources are asked at each call, so arguments given after load are seen.
template <>
class VN_EXPORT InVariable<char const*> : public InVariableBase {
public:
    template <class... Aliases>
    InVariable(char const* name, InPackageInit* package, Aliases const&... aliases)
        : InVariableBase(name, package) {
        (_aliases.push_back(aliases.clone()), ...);
    }
    ~InVariable() override;

    // Null when no source has a value.
    char const* getValue() const;

private:
    std::vector<std::unique_ptr<InContextAlias>> _aliases;
    mutable std::string _value;
};

} // namespace Vn
