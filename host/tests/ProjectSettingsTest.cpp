#include "HoProjectSettings.h"
#include "HoRender.h"
#include "XmlDocument.h"

#include "../../platform/resmgt/tests/TempFolderTest.h"

#include <cstdlib>

using namespace Vn;

namespace {

std::string settings(std::string const& attributes) {
    return "<Config><ProjectSettings " + attributes + "/></Config>";
}

TEST(ProjectSettingsConfig, ReadsEveryKeyAndKeepsDefaultsForTheRest) {
    auto const v = HoProjectSettings::parse(
        settings("width='640' height='360' components='1' depth='float' pixelRatio='2/1' "
                 "rate='30000/1001' start='-5' end='7' repeatMode='2' renderFolder='/r'"),
        "c.xml");
    EXPECT_EQ(std::tuple(v.width, v.height, v.components, v.depth, v.start, v.end, v.repeatMode),
              std::tuple(640, 360, IxPixelFormat::ALPHA, IxPixelFormat::FLOAT32, -5, 7, 2));
    EXPECT_EQ(v.pixelRatio, Rational(2));
    EXPECT_EQ(v.rate, Rational(30000, 1001));
    EXPECT_EQ(v.renderFolder, "/r");
    auto const d = HoProjectSettings::parse("<Config/>", "c.xml");
    EXPECT_EQ(std::tuple(d.width, d.height, d.depth, d.rate),
              std::tuple(1920, 1080, IxPixelFormat::FLOAT16, Rational(25)));
}

TEST(ProjectSettingsConfig, RefusesBadTextNamingFileLineAndFault) {
    struct {
        std::string text;
        char const* fault;
    } const cases[] = {
        {"<Config><ProjectSettings width='0'/>", "malformed XML"},
        {"<Other/>", "line 1: the root is <Other>"},
        {settings("width='0'"), "\"width\" is \"0\", not a whole number from 1"},
        {settings("height='12px'"), "\"height\" is \"12px\""},
        {settings("width='99999999999999999999'"), "\"width\""},
        {settings("components='2'"), "not 1, 3 or 4"},
        {settings("depth='12'"), "not uint8, half or float"},
        {settings("rate='0'"), "\"rate\" is \"0\", not a ratio above 0"},
        {settings("rate='25/'"), "\"rate\""},
        {settings("pixelRatio='-1/2'"), "\"pixelRatio\""},
        {settings("start='9' end='3'"), "the time range 9-3 ends before it starts"},
        {settings("colour='red'"), "unknown attribute \"colour\""},
        {"<Config>\n<ProjectSettings/>\n<ProjectSettings/></Config>",
         "line 3: a second <ProjectSettings>"},
    };
    for (auto const& c : cases) {
        try {
            HoProjectSettings::parse(c.text, "c.xml");
            ADD_FAILURE() << c.text;
        } catch (ExBase const& e) {
            EXPECT_EQ(e.getReason().rfind("\"c.xml\"", 0), 0u) << e.getReason();
            EXPECT_NE(e.getReason().find(c.fault), std::string::npos) << e.getReason();
        }
    }
}

class RenderProgramConfig : public VnTest::TempFolderTest {
protected:
    // Exit code and stderr of vnrender with the configuration file named.
    std::pair<int, std::string> run(std::string const& config, std::string const& options) {
        std::string const err = at("err.txt").getString();
        std::string const command = "VN_CONFIG_FILE_NAME='" + config + "' VN_RESOURCES_DIR='" +
                                    at("resources").getString() + "' " VNRENDER_PATH " " + options +
                                    " 2>" + err;
        int const status = std::system(command.c_str());
        return {WEXITSTATUS(status), get("err.txt")};
    }
};

TEST_F(RenderProgramConfig, TheConfigurationSetsTheDefaultsAndOptionsWin) {
    put("resources/config/small.xml", settings("width='8' height='4' depth='uint8'"));
    std::string const out = at("a.exr").getString();
    EXPECT_EQ(run("small.xml", "-o " + out).first, 0);
    HoImage image = HoImageFile::read(out);
    EXPECT_EQ(std::pair(image.width, image.height), std::pair(8, 4));
    EXPECT_EQ(run("small.xml", "--width 6 -o " + out).first, 0);
    image = HoImageFile::read(out);
    EXPECT_EQ(std::pair(image.width, image.height), std::pair(6, 4));
    // The option names the file over the variable.
    put("other.xml", settings("width='3' height='2'"));
    EXPECT_EQ(run("small.xml", "--config " + at("other.xml").getString() + " -o " + out).first, 0);
    image = HoImageFile::read(out);
    EXPECT_EQ(std::pair(image.width, image.height), std::pair(3, 2));

    auto const [code, err] = run("absent.xml", "-o " + at("b.exr").getString());
    EXPECT_EQ(code, 1);
    EXPECT_EQ(err, "vnrender: error: Missing configuration file.\n");
    put("resources/config/bad.xml", settings("width='wide'"));
    auto const [badCode, badErr] = run("bad.xml", "-o " + at("b.exr").getString());
    EXPECT_EQ(badCode, 1);
    EXPECT_NE(badErr.find("bad.xml\" line 1: \"width\" is \"wide\""), std::string::npos) << badErr;
    EXPECT_FALSE(exists("b.exr"));
}

} // namespace
