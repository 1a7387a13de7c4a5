#include "OsFile.h"

#include <gtest/gtest.h>

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

#include "TempFolderTest.h"

using namespace Vn;
namespace fs = std::filesystem;

namespace {

using OsFileTest = VnTest::TempFolderTest;

// Larger than the file's buffer, so that a save writes more than once.
std::string const kOld(70000, 'o');
std::string const kNew = std::string(90000, 'n') + "end";

} // namespace

// Each step of a save fails in turn, with each error: the target holds the whole old file or
// the whole new one, and no temporary stays beside it. A clean save counts the steps first.
TEST_F(OsFileTest, AFailingStepOfASaveLeavesOneWholeFile) {
    put("t.xml", kOld);
    OsFaultInjector::arm();
    OsFsUtils::saveAtomically(at("t.xml"), kNew);
    int counts[OsFaultInjector::NB_OPERATIONS];
    for (int op = 0; op < OsFaultInjector::NB_OPERATIONS; ++op)
        counts[op] = OsFaultInjector::getCount(OsFaultInjector::Operation(op));
    EXPECT_GE(counts[OsFaultInjector::WRITE], 2);
    EXPECT_EQ(counts[OsFaultInjector::FSYNC], 2) << "the file and its folder";
    EXPECT_EQ(counts[OsFaultInjector::RENAME], 1);
    EXPECT_EQ(get("t.xml"), kNew);

    int cases = 0;
    for (int op = 0; op < OsFaultInjector::NB_OPERATIONS; ++op)
        for (int nth = 1; nth <= counts[op]; ++nth)
            for (int error : {ENOSPC, EIO}) {
                auto const o = OsFaultInjector::Operation(op);
                SCOPED_TRACE(std::string(OsFaultInjector::getName(o)) + " #" + std::to_string(nth) +
                             " " + std::strerror(error));
                put("t.xml", kOld);
                OsFaultInjector::arm();
                OsFaultInjector::failNth(o, nth, error);
                try {
                    OsFsUtils::saveAtomically(at("t.xml"), kNew);
                    ADD_FAILURE() << "no failure";
                } catch (OsFileError const& e) {
                    EXPECT_EQ(e.getErrno(), error);
                    EXPECT_NE(e.getReason().find(std::strerror(error)), std::string::npos);
                    EXPECT_NE(e.getReason().find(_dir.string()), std::string::npos);
                }
                OsFaultInjector::disarm();
                std::string const now = get("t.xml");
                // Only the folder's sync comes after the rename.
                bool const afterRename = o == OsFaultInjector::FSYNC && nth == 2;
                EXPECT_EQ(now, afterRename ? kNew : kOld);
                EXPECT_EQ(names(), std::vector<std::string>{"t.xml"});
                ++cases;
            }
    EXPECT_GE(cases, 14);
}

// A child dies at each step of a save: the parent finds the old file or the new one whole.
TEST_F(OsFileTest, ASaveKilledAtAnyStepLeavesOneWholeFile) {
    put("k.xml", kOld);
    OsFaultInjector::arm();
    OsFsUtils::saveAtomically(at("k.xml"), kOld);
    int const steps = OsFaultInjector::getStepCount();
    OsFaultInjector::disarm();
    for (int step = 1; step <= steps + 1; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        put("k.xml", kOld);
        bool const killed =
            killedAtStep(step, [&] { OsFsUtils::saveAtomically(at("k.xml"), kNew); });
        EXPECT_EQ(killed, step <= steps);
        std::string const now = get("k.xml");
        EXPECT_TRUE(now == kOld || now == kNew) << now.size() << " bytes";
        if (step > steps) {
            EXPECT_EQ(now, kNew);
        }
    }
}

// A new file gets the default permissions, a saved-over one keeps its own; the folder must
// exist, and the failure names the path, the operation and the reason.
TEST_F(OsFileTest, SavesKeepPermissionsAndNameTheirFailures) {
    OsFsUtils::saveAtomically(at("fresh"), "a");
    put("ro", "x");
    ::chmod(at("ro").getString().c_str(), 0640);
    OsFsUtils::saveAtomically(at("ro"), "b");
    struct stat st {};
    ASSERT_EQ(::stat(at("ro").getString().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(get("ro"), "b");
    try {
        OsFsUtils::saveAtomically(at("none/f"), "c");
        FAIL();
    } catch (OsFileError const& e) {
        EXPECT_EQ(e.getOperation(), "open");
        EXPECT_EQ(e.getErrno(), ENOENT);
        EXPECT_NE(e.getReason().find("cannot open \"" + _dir.string() + "/none/."),
                  std::string::npos)
            << e.getReason();
    }
    EXPECT_THROW(OsFsUtils::rename(at("missing"), at("x")), OsFileError);
    EXPECT_THROW(OsFsUtils::link(at("fresh"), at("ro")), OsFileError) << "the name is taken";
    EXPECT_THROW(OsFsUtils::getLastModificationTime(at("missing")), OsFileError);
    EXPECT_FALSE(OsFsUtils::removeFile(at("missing")));
    OsFaultInjector::failNth(OsFaultInjector::UNLINK, 1, EIO);
    EXPECT_THROW(OsFsUtils::removeFile(at("fresh")), OsFileError);
    EXPECT_TRUE(OsFsUtils::fileExists(at("fresh")));
}

TEST_F(OsFileTest, DatesOfFilesCompare) {
    put("a", "1");
    put("b", "2");
    struct timespec const older[2] = {{0, UTIME_OMIT}, {1000, 5}};
    struct timespec const newer[2] = {{0, UTIME_OMIT}, {1000, 6}};
    ASSERT_EQ(::utimensat(AT_FDCWD, at("a").getString().c_str(), older, 0), 0);
    ASSERT_EQ(::utimensat(AT_FDCWD, at("b").getString().c_str(), newer, 0), 0);
    LiDate const a = OsFsUtils::getLastModificationTime(at("a"));
    LiDate const b = OsFsUtils::getLastModificationTime(at("b"));
    EXPECT_EQ(a, LiDate(1000, 5));
    EXPECT_EQ(OsDateUtil::compare(a, b), -1);
    EXPECT_EQ(OsDateUtil::compare(b, a), 1);
    EXPECT_EQ(OsDateUtil::compare(a, a), 0);
}

TEST(OsComponentTypes, SpecialObjectsBelongToTheFileTheyExtend) {
    OsComponentTypes::registerExtensionForSpecialObjects("QnSidecar");
    OsComponentTypes::registerExtensionForSpecialObjects("qnsidecar");
    struct {
        char const* path;
        char const* owner;
    } const cases[] = {
        {"/p/shot.cmp.qnsidecar", "/p/shot.cmp"},
        {"/p/shot.cmp.QNSIDECAR", "/p/shot.cmp"},
        {"rel.qnsidecar", "rel"},
        {"/p/.qnsidecar", ""},
        {"/p/shot.cmp", ""},
        {"/p/qnsidecar", ""},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(OsComponentTypes::getOwnerOf(OsFilePath(c.path)).getString(), c.owner) << c.path;
        EXPECT_EQ(OsComponentTypes::isSpecialObject(OsFilePath(c.path)), *c.owner != 0) << c.path;
    }
}
