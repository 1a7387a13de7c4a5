#include "InPackageInit.h"
#include "ExBase.h"
#include "InVariable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

using namespace Vn;

namespace {
template <int N>
struct Tag {};

// A package with a recorded life, registered with a test's own manager.
class TestPackage : public InPackageInit {
public:
    TestPackage(char const* name, std::type_info const& type, std::vector<std::string>* log)
        : InPackageInit(name), _type(type), _log(log) {}
    void initialize() override {
        if (failInit)
            throw ExInternalError(__FILE__, __LINE__, std::string("cannot start ") + getName());
        _log->push_back(std::string("+") + getName());
    }
    void finalize() override { _log->push_back(std::string("-") + getName()); }
    void preFinalize() override { _log->push_back(std::string("~") + getName()); }
    std::type_info const& getPackageType() const override { return _type; }
    bool failInit = false;

private:
    std::type_info const& _type;
    std::vector<std::string>* _log;
};

std::size_t indexOf(std::vector<std::string> const& v, std::string const& s) {
    return static_cast<std::size_t>(std::find(v.begin(), v.end(), s) - v.begin());
}
} // namespace

TEST(InInitMgr, ShuffledRegistrationStartsDependenciesFirstAndStopsInReverse) {
    // d depends on b and c, b on a, c on a and b (listed twice), e on nothing.
    std::map<std::string, std::vector<std::string>> deps{
        {"a", {}}, {"b", {"a"}}, {"c", {"a", "b", "b"}}, {"d", {"b", "c"}}, {"e", {}}};
    std::map<std::string, std::type_info const*> types{{"a", &typeid(Tag<0>)},
                                                       {"b", &typeid(Tag<1>)},
                                                       {"c", &typeid(Tag<2>)},
                                                       {"d", &typeid(Tag<3>)},
                                                       {"e", &typeid(Tag<4>)}};
    std::vector<std::string> names{"a", "b", "c", "d", "e"};
    std::mt19937 rng(1234);
    for (int round = 0; round < 20; ++round) {
        std::shuffle(names.begin(), names.end(), rng);
        std::vector<std::string> log;
        std::vector<std::unique_ptr<TestPackage>> packages;
        InInitMgr mgr;
        for (auto const& n : names) {
            packages.push_back(std::make_unique<TestPackage>(n.c_str(), *types[n], &log));
            mgr.registerPackage(packages.back().get());
            for (auto const& d : deps[n])
                packages.back()->addDependency(types[d]);
        }
        mgr.initialize();
        ASSERT_EQ(log.size(), 5u);
        for (auto const& [n, ds] : deps)
            for (auto const& d : ds)
                EXPECT_LT(indexOf(log, "+" + d), indexOf(log, "+" + n)) << d << " before " << n;
        auto started = mgr.getInitializedNames();

        log.clear();
        mgr.finalize();
        ASSERT_EQ(log.size(), 10u);
        for (std::size_t i = 0; i < 5; ++i) {
            EXPECT_EQ(log[i], "~" + started[4 - i]);
            EXPECT_EQ(log[5 + i], "-" + started[4 - i]);
        }
        EXPECT_TRUE(mgr.getInitializedNames().empty());
    }
}

TEST(InInitMgr, FailedStartStopsOnlyWhatStartedAndCanBeRetried) {
    std::vector<std::string> log;
    TestPackage a("a", typeid(Tag<0>), &log), b("b", typeid(Tag<1>), &log),
        c("c", typeid(Tag<2>), &log);
    b.addDependency(&typeid(Tag<0>));
    c.addDependency(&typeid(Tag<1>));
    InInitMgr mgr;
    mgr.registerPackage(&c);
    mgr.registerPackage(&b);
    mgr.registerPackage(&a);
    b.failInit = true;
    EXPECT_THROW(mgr.initialize(), ExInternalError);
    EXPECT_EQ(log, (std::vector<std::string>{"+a", "-a"}));
    EXPECT_FALSE(mgr.isInitialized(typeid(Tag<0>)));
    EXPECT_FALSE(mgr.isInitializing());

    // Nothing is left started, so stopping now does nothing.
    log.clear();
    mgr.finalize();
    EXPECT_TRUE(log.empty());

    b.failInit = false;
    mgr.initialize();
    EXPECT_EQ(log, (std::vector<std::string>{"+a", "+b", "+c"}));
    mgr.finalize();
}

TEST(InInitMgr, MissingDependencyAndCycleAreNamed) {
    std::vector<std::string> log;
    TestPackage a("a", typeid(Tag<0>), &log), b("b", typeid(Tag<1>), &log);
    a.addDependency(&typeid(Tag<9>));
    {
        InInitMgr mgr;
        mgr.registerPackage(&a);
        try {
            mgr.initialize();
            FAIL();
        } catch (ExInternalError const& e) {
            EXPECT_NE(e.getReason().find("'a' depends on '(anonymous namespace)::Tag<9>'"),
                      std::string::npos)
                << e.getReason();
        }
        EXPECT_TRUE(log.empty());
    }
    TestPackage c("c", typeid(Tag<2>), &log), d("d", typeid(Tag<3>), &log);
    c.addDependency(&typeid(Tag<3>));
    d.addDependency(&typeid(Tag<2>));
    InInitMgr mgr;
    mgr.registerPackage(&c);
    mgr.registerPackage(&d);
    try {
        mgr.initialize();
        FAIL();
    } catch (ExInternalError const& e) {
        EXPECT_NE(e.getReason().find("cycle"), std::string::npos);
    }
}

TEST(InInitMgr, PackagesSeeTheManagerState) {
    struct Probe : InPackageInit {
        Probe(InInitMgr& m) : InPackageInit("probe"), mgr(m) {}
        void initialize() override { sawInit = mgr.isInitializing() && !mgr.isFinalizing(); }
        void finalize() override { sawFini = mgr.isFinalizing() && !mgr.isInitializing(); }
        std::type_info const& getPackageType() const override { return typeid(Probe); }
        InInitMgr& mgr;
        bool sawInit = false, sawFini = false;
    };
    InInitMgr mgr;
    Probe p(mgr);
    mgr.registerPackage(&p);
    mgr.initialize();
    mgr.finalize();
    EXPECT_TRUE(p.sawInit);
    EXPECT_TRUE(p.sawFini);
    EXPECT_FALSE(mgr.isFinalizing());
}

TEST(InVariable, FirstSourceWithAValueWins) {
    std::vector<std::string> log;
    TestPackage pkg("p", typeid(Tag<0>), &log);
    ::setenv("VN_TEST_INVARIABLE", "from-env", 1);
    InVariable<char const*> v("root", &pkg, InInitArg("root:"), InInitEnv("VN_TEST_INVARIABLE"),
                              InInitDef("/default"));
    EXPECT_EQ(pkg.getVariables().size(), 1u);
    EXPECT_STREQ(v.getValue(), "from-env");
    auto& mgr = InInitMgr::getInstance();
    auto saved = mgr.getArguments();
    mgr.setArguments({"render", "root:/a", "root:/b"});
    EXPECT_STREQ(v.getValue(), "/b");
    mgr.setArguments(saved);
    ::unsetenv("VN_TEST_INVARIABLE");
    EXPECT_STREQ(v.getValue(), "/default");

    InVariable<char const*> none("none", nullptr, InInitEnv("VN_TEST_INVARIABLE_UNSET"));
    EXPECT_EQ(none.getValue(), nullptr);
}
