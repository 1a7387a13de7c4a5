#include "PiAutosaveUtil.h"
#include "OsFile.h"

#include <gtest/gtest.h>

#include "../../../platform/resmgt/tests/TempFolderTest.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Vn;
namespace fs = std::filesystem;

namespace {

// What the extensions were told. The registry outlives each test, so this does too.
std::vector<std::string> journal;

// Writes what it is told into the journal, with its name.
class Recorder final : public PiAutosaveUtil::Extension {
public:
    explicit Recorder(std::string name) : _name(std::move(name)) {}
    void fileReverted(OsFilePath const& p) override { note("reverted", p); }
    void autosavedFileRemoved(OsFilePath const& p) override { note("autosave removed", p); }
    void backupFileRemoved(OsFilePath const& p) override { note("backup removed", p); }

private:
    void note(char const* what, OsFilePath const& p) {
        journal.push_back(_name + " " + what + " " + p.getFileName());
    }
    std::string _name;
};

class AutosaveTest : public VnTest::TempFolderTest {
protected:
    // The registry lives as long as the process: once, however often the tests run. Two
    // extensions of one type, told in the order of registration, and one of each other type.
    static void SetUpTestSuite() {
        static bool const registered = [] {
            PiAutosaveUtil::registerAutosaveExtension("cmp", makeRC<Recorder>("first"));
            PiAutosaveUtil::registerAutosaveExtension("other", makeRC<Recorder>("other"));
            PiAutosaveUtil::registerAutosaveExtension("CMP", makeRC<Recorder>("second"));
            PiAutosaveUtil::registerAutosaveExtension("rmv", makeRC<Recorder>("x"));
            PiAutosaveUtil::registerAutosaveExtension("flt", makeRC<Recorder>("f"));
            return true;
        }();
        (void)registered;
    }
    void SetUp() override {
        TempFolderTest::SetUp();
        journal.clear();
    }
    // The names in the folder with their contents.
    std::vector<std::pair<std::string, std::string>> files() const {
        std::vector<std::pair<std::string, std::string>> f;
        for (auto const& e : fs::directory_iterator(_dir))
            f.emplace_back(e.path().filename().string(), get(e.path().filename().string()));
        std::sort(f.begin(), f.end());
        return f;
    }
    void setMtime(std::string const& rel, long seconds) const {
        struct timespec const t[2] = {{0, UTIME_OMIT}, {seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, at(rel).getString().c_str(), t, 0), 0);
    }
    // A saved file with its autosave, and an older backup when asked.
    void scene(bool withBackup, std::string const& name = "a.cmp") const {
        put(name, "saved");
        put(name + ".qnautosave", "autosaved");
        if (withBackup)
            put(name + ".qnbackup", "older backup");
    }
};

} // namespace

TEST_F(AutosaveTest, NamesAreFormedOnTheWholePath) {
    EXPECT_EQ(PiAutosaveUtil::getAutosavePathFor(OsFilePath("/p/shot.cmp")).getString(),
              "/p/shot.cmp.qnautosave");
    EXPECT_EQ(PiAutosaveUtil::getBackupPathFor(OsFilePath("/p/shot.cmp")).getString(),
              "/p/shot.cmp.qnbackup");
    EXPECT_EQ(PiAutosaveUtil::getBackupPathFor(OsFilePath("noext")).getString(), "noext.qnbackup");
    EXPECT_TRUE(PiAutosaveUtil::getAutosavePathFor(OsFilePath()).isEmpty());
    PiAutosaveUtil::initialize();
    EXPECT_EQ(OsComponentTypes::getOwnerOf(OsFilePath("/p/shot.cmp.qnautosave")).getString(),
              "/p/shot.cmp");
    EXPECT_TRUE(OsComponentTypes::isSpecialObject(OsFilePath("/p/shot.cmp.qnbackup")));
}

// After a revert the backup holds the old file, the saved path the autosaved text and the
// autosave is gone; two extensions of the type are told in the order of registration, those
// of other types not at all.
TEST_F(AutosaveTest, RevertKeepsTheOldFileAsTheBackup) {
    for (bool withBackup : {false, true}) {
        SCOPED_TRACE(withBackup ? "over a backup" : "no backup");
        fs::remove_all(_dir);
        fs::create_directories(_dir);
        journal.clear();
        scene(withBackup);
        PiAutosaveUtil::revertToAutosavedFileOf(at("a.cmp"));
        using F = std::vector<std::pair<std::string, std::string>>;
        EXPECT_EQ(files(), (F{{"a.cmp", "autosaved"}, {"a.cmp.qnbackup", "saved"}}));
        EXPECT_EQ(journal,
                  (std::vector<std::string>{"first reverted a.cmp", "second reverted a.cmp"}));
    }
    // No autosave: nothing happens, nobody is told.
    journal.clear();
    PiAutosaveUtil::revertToAutosavedFileOf(at("a.cmp"));
    EXPECT_EQ(get("a.cmp"), "autosaved");
    // No saved file: the autosave takes its name, and the backup stays.
    fs::remove(_dir / "a.cmp");
    put("a.cmp.qnautosave", "recovered");
    PiAutosaveUtil::revertToAutosavedFileOf(at("a.cmp"));
    EXPECT_EQ(get("a.cmp"), "recovered");
    EXPECT_EQ(get("a.cmp.qnbackup"), "saved");
    EXPECT_FALSE(exists("a.cmp.qnautosave"));
    EXPECT_EQ(journal.size(), 2u);
}

TEST_F(AutosaveTest, RemovalsTellOnlyWhenAFileWentAway) {
    put("b.rmv", "saved");
    PiAutosaveUtil::removeBackupFileOf(at("b.rmv"));
    PiAutosaveUtil::removeAutosavedFileOf(at("b.rmv"));
    EXPECT_TRUE(journal.empty());
    put("b.rmv.qnbackup", "1");
    put("b.rmv.qnautosave", "2");
    EXPECT_TRUE(PiAutosaveUtil::backupFileExistsFor(at("b.rmv")));
    PiAutosaveUtil::removeBackupFileOf(at("b.rmv"));
    PiAutosaveUtil::removeAutosavedFileOf(at("b.rmv"));
    EXPECT_EQ(journal,
              (std::vector<std::string>{"x backup removed b.rmv", "x autosave removed b.rmv"}));
    EXPECT_FALSE(PiAutosaveUtil::backupFileExistsFor(at("b.rmv")));
    EXPECT_EQ(get("b.rmv"), "saved");
}

// Whether an autosave is offered, by the dates of the two files and the flag.
TEST_F(AutosaveTest, AnAutosaveCountsWhenItIsLater) {
    struct {
        long savedAt; // 0: no saved file
        long autoAt;  // 0: no autosave
        bool ignoreDates;
        bool expected;
    } const cases[] = {
        {100, 200, false, true}, {100, 200, true, true},   {200, 100, false, false},
        {200, 100, true, true},  {100, 100, false, false}, {100, 100, true, true},
        {100, 0, false, false},  {100, 0, true, false},    {0, 0, true, false},
        {0, 100, false, true},   {0, 100, true, true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE("saved " + std::to_string(c.savedAt) + " autosave " +
                     std::to_string(c.autoAt) + (c.ignoreDates ? " ignoring dates" : ""));
        fs::remove(_dir / "d.cmp");
        fs::remove(_dir / "d.cmp.qnautosave");
        if (c.savedAt) {
            put("d.cmp", "s");
            setMtime("d.cmp", c.savedAt);
        }
        if (c.autoAt) {
            put("d.cmp.qnautosave", "a");
            setMtime("d.cmp.qnautosave", c.autoAt);
        }
        EXPECT_EQ(PiAutosaveUtil::autosavedFileExistsFor(at("d.cmp"), c.ignoreDates), c.expected);
    }
}

namespace {
// Holds after any failed or interrupted revert: the saved path holds one whole file, and both
// texts still have a name.
void expectNothingLost(std::vector<std::pair<std::string, std::string>> const& files,
                       std::string const& savedNow, bool withBackup) {
    EXPECT_TRUE(savedNow == "saved" || savedNow == "autosaved") << savedNow;
    auto has = [&](std::string const& text) {
        return std::any_of(files.begin(), files.end(),
                           [&](auto const& f) { return f.second == text; });
    };
    EXPECT_TRUE(has("saved"));
    EXPECT_TRUE(has("autosaved"));
    if (withBackup && savedNow == "saved") {
        EXPECT_TRUE(has("older backup"));
    }
}
} // namespace

// Each step of a revert fails in turn with each error: afterwards the folder is exactly as
// before (nothing done, no temporary left), and the extensions were not told.
TEST_F(AutosaveTest, AFailingStepUndoesTheRevert) {
    for (bool copied : {false, true}) {
        for (int kind : {0, 1, 2}) {
            bool const withBackup = kind == 1;
            // Kind 2: only the autosave, as after a crash before the first save.
            auto prepare = [&] {
                scene(withBackup, "a.flt");
                if (kind == 2)
                    fs::remove(_dir / "a.flt");
            };
            if (copied && kind == 2)
                continue;
            fs::remove_all(_dir);
            fs::create_directories(_dir);
            prepare();
            auto const before = files();
            OsFaultInjector::arm();
            // Where the file system has no hard links, the backup is a copy.
            if (copied)
                OsFaultInjector::failNth(OsFaultInjector::LINK, 1, EXDEV);
            PiAutosaveUtil::revertToAutosavedFileOf(at("a.flt"));
            int counts[OsFaultInjector::NB_OPERATIONS];
            for (int op = 0; op < OsFaultInjector::NB_OPERATIONS; ++op)
                counts[op] = OsFaultInjector::getCount(OsFaultInjector::Operation(op));
            OsFaultInjector::disarm();
            EXPECT_EQ(counts[OsFaultInjector::RENAME], (withBackup ? 2 : 1) + (copied ? 1 : 0));
            EXPECT_EQ(counts[OsFaultInjector::LINK], kind == 2 ? 0 : 1);
            EXPECT_EQ(counts[OsFaultInjector::UNLINK], withBackup ? 1 : 0);

            for (int op = 0; op < OsFaultInjector::NB_OPERATIONS; ++op)
                for (int nth = copied && op == OsFaultInjector::LINK ? 2 : 1; nth <= counts[op];
                     ++nth)
                    for (int error : {ENOSPC, EIO}) {
                        auto const o = OsFaultInjector::Operation(op);
                        SCOPED_TRACE(std::string(copied ? "copy, " : "link, ") +
                                     (withBackup ? "backup, " : "") +
                                     (kind == 2 ? "no saved file, " : "") +
                                     OsFaultInjector::getName(o) + " #" + std::to_string(nth) +
                                     " " + std::strerror(error));
                        fs::remove_all(_dir);
                        fs::create_directories(_dir);
                        prepare();
                        journal.clear();
                        OsFaultInjector::arm();
                        if (copied)
                            OsFaultInjector::failNth(OsFaultInjector::LINK, 1, EXDEV);
                        OsFaultInjector::failNth(o, nth, error);
                        try {
                            PiAutosaveUtil::revertToAutosavedFileOf(at("a.flt"));
                            ADD_FAILURE() << "no failure";
                        } catch (OsFileError const& e) {
                            EXPECT_EQ(e.getErrno(), error);
                        }
                        OsFaultInjector::disarm();
                        EXPECT_EQ(files(), before);
                        EXPECT_TRUE(journal.empty());
                    }
        }
    }
}

// A child dies at each step of a revert: the parent finds the saved path whole and every
// text under some name.
TEST_F(AutosaveTest, ARevertKilledAtAnyStepLosesNothing) {
    for (bool withBackup : {false, true}) {
        fs::remove_all(_dir);
        fs::create_directories(_dir);
        scene(withBackup);
        OsFaultInjector::arm();
        PiAutosaveUtil::revertToAutosavedFileOf(at("a.cmp"));
        int const steps = OsFaultInjector::getStepCount();
        OsFaultInjector::disarm();
        for (int step = 1; step <= steps + 1; ++step) {
            SCOPED_TRACE(std::string(withBackup ? "backup, " : "") + "step " +
                         std::to_string(step));
            fs::remove_all(_dir);
            fs::create_directories(_dir);
            scene(withBackup);
            bool const killed =
                killedAtStep(step, [&] { PiAutosaveUtil::revertToAutosavedFileOf(at("a.cmp")); });
            EXPECT_EQ(killed, step <= steps);
            expectNothingLost(files(), get("a.cmp"), withBackup);
            if (step > steps) {
                EXPECT_EQ(get("a.cmp"), "autosaved");
                EXPECT_EQ(get("a.cmp.qnbackup"), "saved");
                EXPECT_FALSE(exists("a.cmp.qnautosave"));
            }
        }
    }
}
