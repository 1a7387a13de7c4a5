#include "InPackageInit.h"
#include "Assertions.h"
#include "ExBase.h"

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <unordered_map>

namespace Vn {

namespace {
std::string demangle(std::type_info const& t) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> s(
        abi::__cxa_demangle(t.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && s ? std::string(s.get()) : std::string(t.name());
}

// Clears a flag on every way out of a scope.
struct FlagScope {
    bool& flag;
    explicit FlagScope(bool& f) : flag(f) { flag = true; }
    ~FlagScope() { flag = false; }
};
} // namespace

InPackageInit::InPackageInit(char const* name) : _name(name ? name : "") {}

InPackageInit::~InPackageInit() {
    if (_manager)
        _manager->unregisterPackage(this);
}

char const* InPackageInit::getName() const {
    return _name.c_str();
}

void InPackageInit::addDependency(InVariableBase* variable) {
    if (variable && std::find(_variables.begin(), _variables.end(), variable) == _variables.end())
        _variables.push_back(variable);
}

void InPackageInit::removeDependency(InVariableBase* variable) {
    std::erase(_variables, variable);
}

void InPackageInit::preInitialize() {}
void InPackageInit::preFinalize() {}
void InPackageInit::initialize() {}
void InPackageInit::finalize() {}

void InPackageInit::registerPackage() {
    InInitMgr::getInstance().registerPackage(this);
}

void InPackageInit::addDependency(std::type_info const* package) {
    VN_ASSERT(package != nullptr);
    // Kept as registered, repeats included; the ordering visits a repeat once.
    _dependencies.push_back(package);
}

InInitMgr::InInitMgr() = default;
InInitMgr::~InInitMgr() {
    for (auto* p : _packages)
        p->_manager = nullptr;
}

InInitMgr& InInitMgr::getInstance() {
    // Never destroyed: package instances of every library unregister from it at unload, in an
    // order the linker decides.
    static InInitMgr* instance = new InInitMgr;
    return *instance;
}

void InInitMgr::registerPackage(InPackageInit* package) {
    VN_ASSERT(package != nullptr);
    VN_ASSERT(package->_manager == nullptr);
    package->_manager = this;
    _packages.push_back(package);
}

void InInitMgr::unregisterPackage(InPackageInit* package) {
    std::erase(_packages, package);
    std::erase(_initialized, package);
    package->_manager = nullptr;
}

InPackageInit* InInitMgr::find(std::type_info const& type) const {
    for (auto* p : _packages)
        if (p->getPackageType() == type)
            return p;
    return nullptr;
}

std::vector<InPackageInit*> InInitMgr::computeOrder() const {
    // Depth-first over the dependency lists; registration order breaks ties, so the order is the
    // same on every run for the same set of libraries.
    enum class Mark { None, Visiting, Done };
    std::unordered_map<InPackageInit const*, Mark> marks;
    std::vector<InPackageInit*> order;
    std::vector<std::string> path;

    auto visit = [&](auto& self, InPackageInit* p) -> void {
        Mark& m = marks[p];
        if (m == Mark::Done)
            return;
        if (m == Mark::Visiting) {
            std::string cycle;
            for (auto& n : path)
                cycle += n + " -> ";
            throw ExInternalError(__FILE__, __LINE__,
                                  "Package dependency cycle: " + cycle + p->getName());
        }
        m = Mark::Visiting;
        path.emplace_back(p->getName());
        for (auto* dep : p->getDependencies()) {
            InPackageInit* d = find(*dep);
            if (!d)
                throw ExInternalError(__FILE__, __LINE__,
                                      std::string("Package '") + p->getName() + "' depends on '" +
                                          demangle(*dep) + "', which is not registered");
            self(self, d);
        }
        path.pop_back();
        marks[p] = Mark::Done;
        order.push_back(p);
    };
    for (auto* p : _packages)
        visit(visit, p);
    return order;
}

void InInitMgr::initialize() {
    VN_ASSERT(!_initializing && !_finalizing);
    FlagScope scope(_initializing);
    std::vector<InPackageInit*> todo;
    for (auto* p : computeOrder())
        if (std::find(_initialized.begin(), _initialized.end(), p) == _initialized.end())
            todo.push_back(p);

    std::vector<InPackageInit*> started;
    try {
        for (auto* p : todo)
            p->preInitialize();
        for (auto* p : todo) {
            p->initialize();
            started.push_back(p);
            _initialized.push_back(p);
        }
    } catch (...) {
        // Packages that never finished starting have nothing to stop.
        for (auto it = started.rbegin(); it != started.rend(); ++it) {
            try {
                (*it)->finalize();
            } catch (...) {
            }
            std::erase(_initialized, *it);
        }
        throw;
    }
}

void InInitMgr::finalize() {
    VN_ASSERT(!_initializing && !_finalizing);
    FlagScope scope(_finalizing);
    std::vector<InPackageInit*> todo(_initialized.rbegin(), _initialized.rend());
    for (auto* p : todo)
        p->preFinalize();
    OPtr<ExBase> first;
    for (auto* p : todo) {
        // Every package gets its chance to stop; the first failure is raised at the end.
        try {
            p->finalize();
        } catch (...) {
            if (!first)
                first = ExWrapper::cloneCurrent();
        }
        std::erase(_initialized, p);
    }
    if (first)
        first->raise();
}

bool InInitMgr::isInitialized(std::type_info const& package) const {
    for (auto* p : _initialized)
        if (p->getPackageType() == package)
            return true;
    return false;
}

std::vector<std::string> InInitMgr::getInitializedNames() const {
    std::vector<std::string> names;
    for (auto* p : _initialized)
        names.emplace_back(p->getName());
    return names;
}

void InInitMgr::setArguments(std::vector<std::string> args) {
    _arguments = std::move(args);
}

} // namespace Vn
