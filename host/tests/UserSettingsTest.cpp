#include "HoUserSettings.h"
#include "InSingleton.h"
#include "OsFile.h"

#include <gtest/gtest.h>

#include "../../platform/resmgt/tests/TempFolderTest.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <unistd.h>

using namespace Vn;
namespace fs = std::filesystem;

namespace {

class UserSettingsTest : public VnTest::TempFolderTest {
protected:
    void TearDown() override {
        HoUserSettings::uninstall();
        TempFolderTest::TearDown();
    }
    OsFilePath file() const { return at("cfg/vn/settings.xml"); }
    void write(std::string const& text) const { put("cfg/vn/settings.xml", text); }
};

std::string const kGood = R"(<?xml version="1.0"?>
<UserSettings version="1">
  <AutoKey>true</AutoKey>
  <VideoDevice name="Monitor A">gamma=2.2</VideoDevice>
  <RecentProjects>
    <Project path="/p/b.cmp" date="2026-03-02T10:00:00Z"/>
    <Project path="/p/a.cmp" date="2026-03-01T10:00:00.25Z"/>
  </RecentProjects>
  <LaterSetting/>
</UserSettings>
)";

} // namespace

// Changes reach the file at once, and a new reader finds them; the recent list keeps the
// latest first, each project once, and no more than its bound.
TEST_F(UserSettingsTest, SettingsRoundTripThroughTheirFile) {
    EXPECT_TRUE(HoUserSettings::install(file()).isNull()) << "no file: the defaults, no failure";
    PiUserSettings& s = PiUserSettings::getInstance();
    EXPECT_FALSE(s.getAutoKey());
    EXPECT_EQ(s.getVideoDeviceSettings("Monitor A"), "");
    EXPECT_FALSE(fs::exists(file().getString())) << "nothing is written before a change";

    s.setAutoKey(true);
    s.setVideoDeviceSettings("Monitor A", "gamma=2.2 <&> \"x\"");
    s.setVideoDeviceSettings("Empty", "");
    for (int i = 0; i < 12; ++i)
        s.addRecentProject(OsFilePath("/p/" + std::to_string(i) + ".cmp"), LiDate(1000 + i, 0));
    s.addRecentProject(OsFilePath("/p/5.cmp"), LiDate(1000, 0));
    s.removeRecentProject(OsFilePath("/p/11.cmp"));

    OPtr<HoUserSettings> again = HoUserSettings::load(file());
    EXPECT_TRUE(again->getAutoKey());
    EXPECT_EQ(again->getVideoDeviceSettings("Monitor A"), "gamma=2.2 <&> \"x\"");
    EXPECT_EQ(again->getValues().videoDevices.count("Empty"), 1u);
    std::vector<std::string> recent;
    for (auto const& e : again->getRecentProjects())
        recent.push_back(e.getProjectPath().getString() + "@" +
                         std::to_string(e.getDate().getSeconds()));
    EXPECT_EQ(recent,
              (std::vector<std::string>{"/p/5.cmp@1000", "/p/10.cmp@1010", "/p/9.cmp@1009",
                                        "/p/8.cmp@1008", "/p/7.cmp@1007", "/p/6.cmp@1006",
                                        "/p/4.cmp@1004", "/p/3.cmp@1003", "/p/2.cmp@1002"}));
    for (auto const& entry : fs::directory_iterator(_dir / "cfg/vn"))
        EXPECT_EQ(entry.path().filename(), "settings.xml") << "no temporary stays";

    HoUserSettings::Values const read = HoUserSettings::parse(kGood, "good");
    EXPECT_EQ(HoUserSettings::parse(HoUserSettings::format(read), "again").recentProjects,
              read.recentProjects);
    EXPECT_EQ(read.recentProjects.front().getDate().toIso8601(), "2026-03-02T10:00:00Z");
}

// A file that is no settings file is refused naming the file and the line; installing it
// leaves the defaults, hands back the failure and does not touch the file.
TEST_F(UserSettingsTest, ABadFileLeavesTheDefaults) {
    struct {
        std::string text;
        std::string expected;
    } const cases[] = {
        {kGood.substr(0, kGood.size() / 2), "(line "},
        {"", "malformed XML"},
        {"\x01\x02garbage", "malformed XML"},
        {"<Other version=\"1\"/>", "line 1: the root is <Other>"},
        {"<UserSettings version=\"7\"/>", "line 1: version \"7\""},
        {"<UserSettings version=\"1\">\n<AutoKey>yes</AutoKey></UserSettings>",
         "line 2: <AutoKey> holds \"yes\""},
        {"<UserSettings version=\"1\">\n\n<VideoDevice>x</VideoDevice></UserSettings>",
         "line 3: <VideoDevice> has no \"name\""},
        {"<UserSettings version=\"1\"><VideoDevice name=\"a\"/>\n<VideoDevice name=\"a\"/>"
         "</UserSettings>",
         "line 2: the device \"a\" is there twice"},
        {"<UserSettings version=\"1\"><RecentProjects>\n<Project path=\"/a\" date=\"today\"/>"
         "</RecentProjects></UserSettings>",
         "line 2: \"today\" is not a date"},
        {"<UserSettings version=\"1\"><RecentProjects>\n<Project date=\"2026-03-01T00:00:00Z\"/>"
         "</RecentProjects></UserSettings>",
         "line 2: <Project> has no \"path\""},
        {"<UserSettings version=\"1\"><RecentProjects><Thing/></RecentProjects></UserSettings>",
         "line 1: <Thing> is no <Project>"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.expected);
        write(c.text);
        std::string loadReason;
        try {
            HoUserSettings::load(file());
            ADD_FAILURE() << "accepted";
        } catch (ExBase const& e) {
            loadReason = e.getReason();
            EXPECT_NE(e.getReason().find("\"" + file().getString() + "\""), std::string::npos)
                << e.getReason();
            EXPECT_NE(e.getReason().find(c.expected), std::string::npos) << e.getReason();
        }
        OPtr<ExBase> failure = HoUserSettings::install(file());
        ASSERT_FALSE(failure.isNull());
        EXPECT_EQ(failure->getReason(), loadReason);
        EXPECT_FALSE(PiUserSettings::getInstance().getAutoKey());
        EXPECT_TRUE(PiUserSettings::getInstance().getRecentProjects().empty());
        HoUserSettings::uninstall();
        std::ifstream in(file().getString(), std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), c.text);
    }
}

// A save that fails keeps the file as it was; the change stays for the session.
TEST_F(UserSettingsTest, AFailedSaveKeepsTheFile) {
    write(kGood);
    HoUserSettings::install(file());
    EXPECT_THROW(HoUserSettings::install(file()), InSingletonEx::ExAlreadyInitialized);
    OsFaultInjector::failNth(OsFaultInjector::RENAME, 1, ENOSPC);
    EXPECT_THROW(PiUserSettings::getInstance().setAutoKey(false), OsFileError);
    EXPECT_FALSE(PiUserSettings::getInstance().getAutoKey());
    EXPECT_TRUE(HoUserSettings::load(file())->getAutoKey());
}

TEST(UserSettingsPath, FromTheEnvironment) {
    struct {
        char const* file;
        char const* xdg;
        char const* home;
        char const* expected;
    } const cases[] = {
        {"/f/s.xml", "/x", "/h", "/f/s.xml"},
        {nullptr, "/x", "/h", "/x/vn/settings.xml"},
        {nullptr, "relative", "/h", "/h/.config/vn/settings.xml"},
        {nullptr, nullptr, "/h", "/h/.config/vn/settings.xml"},
        {nullptr, nullptr, nullptr, ""},
    };
    auto set = [](char const* name, char const* value) {
        if (value)
            ::setenv(name, value, 1);
        else
            ::unsetenv(name);
    };
    char const* home = std::getenv("HOME");
    std::string const savedHome = home ? home : "";
    for (auto const& c : cases) {
        set("VN_USER_SETTINGS_FILE", c.file);
        set("XDG_CONFIG_HOME", c.xdg);
        set("HOME", c.home);
        EXPECT_EQ(HoUserSettings::getDefaultPath().getString(), c.expected);
    }
    ::unsetenv("VN_USER_SETTINGS_FILE");
    ::unsetenv("XDG_CONFIG_HOME");
    set("HOME", home ? savedHome.c_str() : nullptr);
}
