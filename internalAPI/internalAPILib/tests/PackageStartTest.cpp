#include "ExBase.h"
#include "InBuildInfo.h"
#include "InPackageInit.h"
#include "LibraryBuildInfo.h"
#include "PrimitivesImpInit.h"
#include "PxGraphLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cxxabi.h>
#include <map>
#include <memory>

using namespace Vn;

namespace {
std::string shortName(std::type_info const& t) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> s(
        abi::__cxa_demangle(t.name(), nullptr, nullptr, &status), std::free);
    std::string n = s ? s.get() : t.name();
    auto pos = n.rfind("::");
    return pos == std::string::npos ? n : n.substr(pos + 2);
}

// The libraries' packages and whom each names as a dependency, in the order of registration.
std::map<std::string, std::vector<std::string>> const kTable{
    {"internalAPI",
     {"primitives", "resmgt", "pluginAPI", "base", "toolImp", "procImp", "primitivesImp",
      "imageImp", "timeImp", "dataImp", "videoPreviewBase", "selection", "statistics"}},
    {"toolImp",
     {"timeImp", "dataImp", "procImp", "selection", "primitivesImp", "imageImp", "pluginAPI",
      "primitives", "resmgt", "base"}},
    {"procImp",
     {"primitivesImp", "imageImp", "statistics", "pluginAPI", "primitives", "resmgt", "pluginAPI",
      "base"}},
    {"primitivesImp", {"primitives", "base"}},
    {"imageImp", {"primitives", "resmgt", "pluginAPI", "base"}},
    {"timeImp", {"pluginAPI", "resmgt", "base"}},
    {"dataImp", {"resmgt", "base"}},
    {"videoPreviewBase", {"dataImp", "pluginAPI", "base"}},
    {"selection", {"base", "primitives", "resmgt", "pluginAPI"}},
    {"statistics", {"primitives", "resmgt", "base"}},
    {"pluginAPI", {"primitives", "resmgt", "base"}},
    {"primitives", {"resmgt", "base"}},
    {"resmgt", {"base"}},
    {"base", {}},
};

class Started : public ::testing::Test {
protected:
    void SetUp() override { InInitMgr::getInstance().initialize(); }
    void TearDown() override { InInitMgr::getInstance().finalize(); }
};

struct FailingTag {};
// Starts after primitivesImp and fails.
class FailingPackage : public InPackageInit {
public:
    FailingPackage() : InPackageInit("failing") { addDependencies<VnInit::primitivesImp>(); }
    void initialize() override { throw ExInternalError(__FILE__, __LINE__, "no start"); }
    std::type_info const& getPackageType() const override { return typeid(FailingTag); }
};
} // namespace

TEST_F(Started, EveryPackageStartsAfterItsDependencies) {
    auto order = InInitMgr::getInstance().getInitializedNames();
    ASSERT_EQ(order.size(), kTable.size());
    auto pos = [&](std::string const& n) {
        return std::find(order.begin(), order.end(), n) - order.begin();
    };
    for (auto const& [name, deps] : kTable)
        for (auto const& d : deps)
            EXPECT_LT(pos(d), pos(name)) << d << " must start before " << name;
}

TEST(PackageTable, EachPackageListsItsDependenciesInTableOrder) {
    std::map<std::string, std::vector<std::string>> registered;
    for (InPackageInit const* p : InInitMgr::getInstance().getPackages()) {
        auto& row = registered[p->getName()];
        for (auto const* d : p->getDependencies())
            row.push_back(shortName(*d));
        EXPECT_EQ(shortName(p->getPackageType()), p->getName());
    }
    EXPECT_EQ(registered, kTable);
}

TEST_F(Started, BuildInformationIsRegistered) {
    InBuildInfo const* info = InBuildInfoUtil::findInfo("libVninternalAPI");
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->getLibraryName(), "libVninternalAPI");
    EXPECT_EQ(info->getSuffix(), info->getReleaseStage() == 3 ? "dev" : "");
    EXPECT_GE(info->getYear(), 2026);
    EXPECT_EQ(info->getVersionText(), std::to_string(info->getMajorVersion()) + "." +
                                          std::to_string(info->getMinorVersion()));
}

TEST_F(Started, ProcImpCreatesItsLogGroupOnce) {
    InPackageInit* procImp = nullptr;
    for (auto* p : InInitMgr::getInstance().getPackages())
        if (std::string(p->getName()) == "procImp")
            procImp = p;
    ASSERT_NE(procImp, nullptr);
    try {
        procImp->initialize();
        FAIL() << "a second start must be refused";
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "LgGroups::VN_XGLUE( MinorLevel, PxGraph ) == 0");
    }
}

TEST(ProcImp, LogGroupLivesExactlyWhileStarted) {
    auto& mgr = InInitMgr::getInstance();
    EXPECT_EQ(LgGroups::MinorLevelPxGraph, nullptr);
    for (int round = 0; round < 2; ++round) {
        mgr.initialize();
        ASSERT_NE(LgGroups::MinorLevelPxGraph, nullptr);
        EXPECT_EQ(LgGroups::MinorLevelPxGraph->getName(), "PxGraph");
        EXPECT_EQ(LgGroups::MinorLevelPxGraph->getMajor().getName(), "Pp");
        EXPECT_TRUE(LgGroups::MinorLevelPxGraph->isOn(0));
        mgr.finalize();
        EXPECT_EQ(LgGroups::MinorLevelPxGraph, nullptr);
    }
}

TEST(PackageStart, AFailedStartLeavesNothingToFinalize) {
    auto& mgr = InInitMgr::getInstance();
    {
        FailingPackage failing;
        mgr.registerPackage(&failing);
        EXPECT_THROW(mgr.initialize(), ExInternalError);
        EXPECT_TRUE(mgr.getInitializedNames().empty());
        EXPECT_EQ(LgGroups::MinorLevelPxGraph, nullptr);
        mgr.finalize(); // does nothing
        EXPECT_TRUE(mgr.getInitializedNames().empty());
    }
    // With the failing package gone the library starts as usual.
    mgr.initialize();
    EXPECT_TRUE(mgr.isInitialized(typeid(VnInit::primitivesImp)));
    mgr.finalize();
}
