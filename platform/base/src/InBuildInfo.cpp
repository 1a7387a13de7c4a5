#include "InBuildInfo.h"

#include <map>
#include <mutex>

namespace Vn {

InBuildInfo::~InBuildInfo() = default;

std::string InBuildInfo::describe() const {
    return getLibraryName() + " " + getVersionText() + getSuffix() + " (" + getProductName() +
           ", build " + std::to_string(getBuildNumber()) + ", " + getBuildDate() + ", " +
           getBuildConfiguration() + ")";
}

namespace {
struct Registry {
    std::mutex lock;
    std::map<std::string, OPtr<InBuildInfo>> infos;
    std::string last;
    OPtr<InBuildInfo> app;
};
Registry& registry() {
    static auto* r = new Registry;
    return *r;
}
} // namespace

void InBuildInfoUtil::registerInfo(OPtr<InBuildInfo> info) {
    if (!info)
        return;
    auto& r = registry();
    std::lock_guard g(r.lock);
    std::string name = info->getLibraryName();
    r.infos[name] = std::move(info);
    r.last = name;
}

bool InBuildInfoUtil::unregisterInfo(std::string const& libraryName) {
    auto& r = registry();
    std::lock_guard g(r.lock);
    if (r.last == libraryName)
        r.last.clear();
    return r.infos.erase(libraryName) > 0;
}

InBuildInfo const* InBuildInfoUtil::getLastRegisteredInfo() {
    auto& r = registry();
    std::lock_guard g(r.lock);
    auto it = r.infos.find(r.last);
    return it == r.infos.end() ? nullptr : it->second.get();
}

InBuildInfo const* InBuildInfoUtil::findInfo(std::string const& libraryName) {
    auto& r = registry();
    std::lock_guard g(r.lock);
    auto it = r.infos.find(libraryName);
    return it == r.infos.end() ? nullptr : it->second.get();
}

std::vector<std::string> InBuildInfoUtil::getLibraryNames() {
    auto& r = registry();
    std::lock_guard g(r.lock);
    std::vector<std::string> names;
    for (auto const& [name, info] : r.infos)
        names.push_back(name);
    return names;
}

std::string InBuildInfo::getBuildInformationString() {
    auto& r = registry();
    std::lock_guard g(r.lock);
    std::string text;
    for (auto const& [name, info] : r.infos)
        text += (text.empty() ? "" : "; ") + info->describe();
    return text;
}

void InBuildInfoMgr::setAppInfo(OPtr<InBuildInfo> info) {
    auto& r = registry();
    std::lock_guard g(r.lock);
    r.app = std::move(info);
}

InBuildInfo const* InBuildInfoMgr::getAppInfo() {
    auto& r = registry();
    std::lock_guard g(r.lock);
    return r.app.get();
}

} // namespace Vn
