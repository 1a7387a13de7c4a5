#pragma once

#include "VnExport.h"

#include <string>
#include <typeinfo>
#include <vector>

namespace VnInit {
// Tag of the foundation package of this library.
struct base {};
} // namespace VnInit

namespace Vn {

class InVariableBase;
class InInitMgr;

// One package of a library. Its static instance registers itself when the library loads; the
// host then starts every registered package, dependencies first, and stops them in reverse.
class VN_EXPORT InPackageInit {
public:
    explicit InPackageInit(char const* name);
    InPackageInit(InPackageInit const&) = delete;
    InPackageInit& operator=(InPackageInit const&) = delete;
    virtual ~InPackageInit();

    virtual char const* getName() const;
    // Settings that belong to this package.
    virtual void addDependency(InVariableBase* variable);
    virtual void removeDependency(InVariableBase* variable);
    virtual void preInitialize();
    virtual void preFinalize();
    virtual void initialize();
    virtual void finalize();
    virtual std::type_info const& getPackageType() const = 0;

    // Registers with the process-wide manager.
    void registerPackage();
    // Names a package that must start before this one. Listing one twice is harmless.
    void addDependency(std::type_info const* package);
    // One addDependency per tag, in the order given.
    template <class... Tags>
    void addDependencies() {
        (addDependency(&typeid(Tags)), ...);
    }

    std::vector<std::type_info const*> const& getDependencies() const { return _dependencies; }
    std::vector<InVariableBase*> const& getVariables() const { return _variables; }

private:
    std::string _name;
    std::vector<std::type_info const*> _dependencies;
    std::vector<InVariableBase*> _variables;
    InInitMgr* _manager = nullptr;
    friend class InInitMgr;
};

// The package named by the empty tag class Tag. Each package defines, by explicit
// specialisation, its constructor (name, registration and dependency table) and its hooks.
template <class Tag>
class InInit : public InPackageInit {
public:
    InInit();
    ~InInit() override = default;
    void initialize() override;
    void finalize() override;
    std::type_info const& getPackageType() const override { return getType(); }
    static std::type_info const& getType() { return typeid(Tag); }
};

// Orders and runs the packages. Packages are started dependencies first, in registration order
// otherwise; a failed start stops, in reverse, only the packages that finished starting.
class VN_EXPORT InInitMgr {
public:
    InInitMgr();
    InInitMgr(InInitMgr const&) = delete;
    InInitMgr& operator=(InInitMgr const&) = delete;
    ~InInitMgr();

    static InInitMgr& getInstance();

    void registerPackage(InPackageInit* package);
    void unregisterPackage(InPackageInit* package);

    // Starts every registered package not yet started. Raises what a package raised, after
    // stopping those started by this call; raises ExInternalError for a dependency that is not
    // registered or a cycle.
    void initialize();
    // Stops every started package, preFinalize first for all, then finalize, in reverse order.
    void finalize();

    bool isInitializing() const noexcept { return _initializing; }
    bool isFinalizing() const noexcept { return _finalizing; }
    bool isInitialized(std::type_info const& package) const;
    std::vector<InPackageInit*> const& getPackages() const { return _packages; }
    // Names of the started packages in the order they started.
    std::vector<std::string> getInitializedNames() const;

    // Command-line arguments, read by InInitArg settings.
    void setArguments(std::vector<std::string> args);
    std::vector<std::string> const& getArguments() const { return _arguments; }

private:
    InPackageInit* find(std::type_info const& type) const;
    std::vector<InPackageInit*> computeOrder() const;

    std::vector<InPackageInit*> _packages;
    std::vector<InPackageInit*> _initialized;
    std::vector<std::string> _arguments;
    bool _initializing = false;
    bool _finalizing = false;
};

} // namespace Vn
