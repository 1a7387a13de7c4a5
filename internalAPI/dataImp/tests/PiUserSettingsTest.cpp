#include "PiUserSettings.h"
#include "InSingleton.h"
#include "PiAppLogic.h"
#include "PiBrowserSchemes.h"
#include "PiSaveAsUtil.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Vn;

namespace {
using Entry = PiUserSettings::ProjectListEntry;
Entry entry(char const* path, std::int64_t seconds) {
    return Entry(OsFilePath(path), LiDate(seconds, 0));
}
} // namespace

TEST(ProjectListEntry, EqualByPathOrByDateOrderedByDate) {
    struct {
        Entry a, b;
        bool equal, less;
    } const cases[] = {
        {entry("/a.cmp", 1), entry("/b.cmp", 1), true, false},
        {entry("/a.cmp", 1), entry("/a.cmp", 2), true, true},
        {entry("/a.cmp", 1), entry("/b.cmp", 2), false, true},
        {entry("/b.cmp", 3), entry("/a.cmp", 2), false, false},
        {Entry(), Entry(), true, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.a.getProjectPath().getString() + " " + c.b.getProjectPath().getString());
        EXPECT_EQ(c.a == c.b, c.equal);
        EXPECT_EQ(c.a < c.b, c.less);
    }
    // What a list does with that: sort by date, and unique folds entries of one project or
    // of one moment.
    PiUserSettings::ProjectList list{entry("/c", 30), entry("/a", 10), entry("/c", 20),
                                     entry("/d", 20), entry("/b", 40)};
    list.sort();
    list.unique();
    std::vector<std::string> paths;
    for (Entry const& e : list)
        paths.push_back(e.getProjectPath().getString());
    EXPECT_EQ(paths, (std::vector<std::string>{"/a", "/c", "/b"}));
    list.remove(entry("/elsewhere", 40));
    EXPECT_EQ(list.size(), 2u);
}

TEST(PiUserSettings, NotThereUntilTheApplicationGivesIt) {
    EXPECT_FALSE(PiUserSettings::isInitialized());
    EXPECT_THROW(PiUserSettings::getInstance(), InSingletonEx::ExNotInitialized);
}

namespace {
class Standalone final : public PiAppLogic::StandaloneInterface {
public:
    bool isStandalone() const override { return true; }
};
// Forwards to two dispatchers, as an application's database would.
class Database final : public PiAppLogic::DatabaseInterface {
public:
    void addOpenDbCb(CbHandler<CbEmptyType>* h) override { open.addHandler(h); }
    void removeOpenDbCb(CbHandler<CbEmptyType>* h) override { open.removeHandler(h); }
    void addCloseDbCb(CbHandler<CbEmptyType>* h) override { close.addHandler(h); }
    void removeCloseDbCb(CbHandler<CbEmptyType>* h) override { close.removeHandler(h); }
    CbDispatcher<CbEmptyType> open, close;
};
class Counter final : public CbHandler<CbEmptyType> {
public:
    void execute(CbEmptyType const&) override { ++calls; }
    int calls = 0;
};
} // namespace

TEST(PiAppLogic, ForwardsOnceItsInterfacesAreGiven) {
    Counter h;
    auto const calls = std::vector<void (*)(CbHandler<CbEmptyType>*)>{
        &PiAppLogic::addOpenDbCb, &PiAppLogic::removeOpenDbCb, &PiAppLogic::addCloseDbCb,
        &PiAppLogic::removeCloseDbCb};
    EXPECT_THROW(PiAppLogic::isStandalone(), InSingletonEx::ExNotInitialized);
    for (auto call : calls)
        EXPECT_THROW(call(&h), InSingletonEx::ExNotInitialized);

    PiAppLogic::StandaloneInterface::initialize(makeOPtr<Standalone>());
    EXPECT_TRUE(PiAppLogic::isStandalone());
    EXPECT_THROW(PiAppLogic::addOpenDbCb(&h), InSingletonEx::ExNotInitialized)
        << "each interface is given on its own";
    EXPECT_THROW(PiAppLogic::StandaloneInterface::initialize(makeOPtr<Standalone>()),
                 InSingletonEx::ExAlreadyInitialized);

    auto* db = new Database;
    PiAppLogic::DatabaseInterface::initialize(OPtr<PiAppLogic::DatabaseInterface>(db));
    PiAppLogic::addOpenDbCb(&h);
    db->open.call({});
    db->close.call({});
    PiAppLogic::addCloseDbCb(&h);
    db->close.call({});
    PiAppLogic::removeOpenDbCb(&h);
    PiAppLogic::removeCloseDbCb(&h);
    db->open.call({});
    db->close.call({});
    EXPECT_EQ(h.calls, 2);

    PiAppLogic::DatabaseInterface::finalize();
    PiAppLogic::StandaloneInterface::finalize();
    EXPECT_THROW(PiAppLogic::isStandalone(), InSingletonEx::ExNotInitialized);
    EXPECT_FALSE(PiAppLogic::DatabaseInterface::isInitialized());
}

TEST(PiBrowserSchemes, Names) {
    EXPECT_EQ(PiBrowserSchemes::FsScheme, LiString("File"));
    EXPECT_EQ(PiBrowserSchemes::DbScheme, LiString("Library"));
    EXPECT_EQ(PiBrowserSchemes::ConduitScheme, LiString("Conduit"));
    EXPECT_EQ(PiBrowserSchemes::PluginToolScheme, LiString("Tools"));
    EXPECT_EQ(PiBrowserSchemes::PluginViewScheme, LiString("Views"));
    EXPECT_EQ(PiBrowserSchemes::PicklistScheme, LiString("Pick List"));
    EXPECT_EQ(PiBrowserSchemes::BookmarkScheme, LiString("Bookmark"));
}

namespace {
std::string s_seen;
OsFilePath chooseBeside(OsFilePath const& path, std::string const& title,
                        std::string const& message) {
    s_seen = title + "|" + message;
    return path.getParent().append("chosen.cmp");
}
} // namespace

TEST(PiSaveAsUtil, TheRegisteredDialogAnswers) {
    EXPECT_THROW(PiSaveAsUtil::popupSaveAs(OsFilePath("/p/a.cmp"), "t", "m"), ExAssertionFailed);
    PiSaveAsUtil::registerPopupSaveAsImplementation(&chooseBeside);
    EXPECT_EQ(PiSaveAsUtil::popupSaveAs(OsFilePath("/p/a.cmp"), "Save", "Where?").getString(),
              "/p/chosen.cmp");
    EXPECT_EQ(s_seen, "Save|Where?");
    PiSaveAsUtil::registerPopupSaveAsImplementation(nullptr);
}
