#include "PiConfigFile.h"
#include "InSingleton.h"
#include "LiStringSubstituter.h"
#include "PiProjectSettings.h"
#include "XmlDocument.h"

#include "../../../platform/resmgt/tests/TempFolderTest.h"

#include <cstdlib>

using namespace Vn;

namespace {

class ConfigFileTest : public VnTest::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        ::setenv("VN_RESOURCES_DIR", at("resources").getString().c_str(), 1);
        ::unsetenv("VN_CONFIG_FILE_NAME");
        PiConfigFile::unload();
    }
    void TearDown() override {
        PiConfigFile::unload();
        ::unsetenv("VN_RESOURCES_DIR");
        ::unsetenv("VN_CONFIG_FILE_NAME");
        TempFolderTest::TearDown();
    }
    // The root's "from" attribute of the document found, or the error's reason.
    static std::string found() {
        try {
            return PiConfigFile::getXmlDocument()->getRoot().getAttribute("from");
        } catch (ExBase const& e) {
            return e.getReason().substr(0, e.getReason().find('.') + 1);
        }
    }
};

TEST_F(ConfigFileTest, TheNamedFileGoesBeforeTheInstalledOneAndFailuresAreNamed) {
    struct {
        char const* setting; // null: the default name
        bool named, installed;
        char const* content;
        std::string expected;
    } const cases[] = {
        {nullptr, false, true, "<Config from='installed'/>", "installed"},
        {nullptr, false, false, "", "Missing configuration file."},
        {"mine.xml", true, true, "<Config from='named'/>", "named"},
        {"mine.xml", false, true, "<Config from='installed'/>", "installed"},
        {"mine.xml", true, false, "<Config from='named'><open></Config>",
         "Invalid configuration file."},
        {"mine.xml", false, false, "", "Missing configuration file."},
    };
    std::filesystem::path const home = std::filesystem::current_path();
    for (auto const& c : cases) {
        std::filesystem::remove_all(at("").getString());
        std::filesystem::create_directories(at("work").getString());
        // The working folder is where a bare name is looked for first.
        std::filesystem::current_path(at("work").getString());
        std::string const name = c.setting ? c.setting : "config.xml";
        if (c.setting)
            ::setenv("VN_CONFIG_FILE_NAME", c.setting, 1);
        if (c.named)
            put("work/" + name, c.content);
        if (c.installed)
            put("resources/config/" + name, c.content);
        SCOPED_TRACE(name + (c.named ? " named" : "") + (c.installed ? " installed" : ""));
        EXPECT_EQ(found(), c.expected);
        PiConfigFile::unload();
        ::unsetenv("VN_CONFIG_FILE_NAME");
    }
    std::filesystem::current_path(home);
}

TEST_F(ConfigFileTest, LoadedOnceAndRetriedAfterAFailure) {
    EXPECT_EQ(found(), "Missing configuration file.");
    put("resources/config/config.xml", "<Config from='late'/>");
    UPtr<const XmlDocument> const first = PiConfigFile::getXmlDocument();
    put("resources/config/config.xml", "<Config from='changed'/>");
    EXPECT_EQ(PiConfigFile::getXmlDocument().get(), first.get());
    EXPECT_EQ(found(), "late");
    EXPECT_EQ(PiConfigFile::getLoadedPath(), at("resources/config/config.xml"));
    EXPECT_EQ(PiConfigFile::getConfigPath(), at("resources/config"));
}

class FixedSettings final : public PiProjectSettings {
public:
    explicit FixedSettings(std::string folder) : _folder(std::move(folder)) {}
    int getDefaultWidth() const override { return 64; }
    int getDefaultHeight() const override { return 32; }
    IxPixelFormat::Comps getDefaultComponents() const override { return IxPixelFormat::RGBA; }
    IxPixelFormat::Depth getDefaultDepth() const override { return IxPixelFormat::FLOAT16; }
    Rational getDefaultPixelRatio() const override { return Rational(1); }
    int getDefaultRepeatMode() const override { return 0; }
    Rational getDefaultRate() const override { return Rational(30000, 1001); }
    int getDefaultStart() const override { return 1; }
    int getDefaultEnd() const override { return 10; }
    std::string getRenderFolder() const override { return _folder; }

    static void up(std::string folder) {
        initialize(OPtr<PiProjectSettings>(new FixedSettings(std::move(folder))));
    }
    static void down() { finalize(); }

private:
    std::string _folder;
};

TEST(ProjectSettings, LifeCyclePatternsAndModeTexts) {
    using Mode = PiProjectSettings::PrecompUpdateMode;
    EXPECT_THROW(PiProjectSettings::getInstance(), InSingletonEx::ExNotInitialized);
    // The texts are filled by the start of the settings.
    EXPECT_THROW(PiProjectSettings::precompUpdateModeToString(Mode::UPDATE), ExBase);
    EXPECT_EQ(LiStringSubstituter::substitute("<RenderFolder>/a"), "<RenderFolder>/a");

    FixedSettings::up("/renders");
    EXPECT_THROW(FixedSettings::up("/other"), InSingletonEx::ExAlreadyInitialized);
    EXPECT_EQ(PiProjectSettings::getInstance().getRenderFolder(), "/renders");
    EXPECT_EQ(LiStringSubstituter::substitute("<RenderFolder>/shot.exr"), "/renders/shot.exr");
    EXPECT_EQ(LiStringSubstituter::substitute("x<PublishDir>y<RenderFolder>"),
              "x/rendersy/renders");
    char const* const texts[] = {"Update", "Recreate (Keep Versions)",
                                 "Overwrite (Delete Versions)", "Skip Existing Compositions",
                                 "Prompt User"};
    for (unsigned m = 0; m < 5; ++m)
        EXPECT_EQ(PiProjectSettings::precompUpdateModeToString(static_cast<Mode>(m)), texts[m]);
    EXPECT_THROW(PiProjectSettings::precompUpdateModeToString(static_cast<Mode>(5)), ExBase);

    FixedSettings::down();
    EXPECT_FALSE(PiProjectSettings::isInitialized());
    EXPECT_FALSE(LiStringSubstituter::isRegistered("<PublishDir>"));
    // Ready for the next project's settings.
    FixedSettings::up("/next");
    EXPECT_EQ(LiStringSubstituter::substitute("<PublishDir>"), "/next");
    FixedSettings::down();
}

} // namespace
