#include "PiImageFile.h"
#include "PiImageFileDetails.h"
#include "PiProjectSettings.h"
#include "XmlDocument.h"

#include <gtest/gtest.h>

using namespace Vn;

namespace {

class Options final : public PiFile::FormatOptionsUI {
public:
    mutable int reads = 0;
    std::string quality = "high";
    void writeOptions(XmlWriter& w) const override {
        w.openTag("Options");
        w.writeAttrib("quality", quality);
        w.closeTag();
    }
    void readOptions(XmlElement const& root) override {
        ++reads;
        quality = root.getAttribute("quality");
    }
};

// A format of n components that keeps nothing.
class Plain final : public PiImageFile {
public:
    explicit Plain(int n, bool options = false)
        : PiImageFile(nullptr, L"/x/\u00e9t\u00e9.img"), _n(n), _options(options) {}
    ImFormat getFormat() const override { return ImFormat(4, 3, ImPixelFormat(4, 16)); }
    int getNbComponents() const override { return _n; }
    void readImage(GeRectangle<int> const&, ImImage const&) override {}
    void writeImage(ImImageConst const&) override {}
    OPtrRet<FormatOptionsUI> getFileFormatOptionsUI() const override {
        return _options ? OPtrRet<FormatOptionsUI>(new Options) : nullptr;
    }
    void setRatio(Rational r) { _pixelRatio = r; }
    void setRate(Rational r) { _rate = r; }

private:
    int _n;
    bool _options;
};

class Settings final : public PiProjectSettings {
public:
    int getDefaultWidth() const override { return 1; }
    int getDefaultHeight() const override { return 1; }
    IxPixelFormat::Comps getDefaultComponents() const override { return IxPixelFormat::RGB; }
    IxPixelFormat::Depth getDefaultDepth() const override { return IxPixelFormat::UINT8; }
    Rational getDefaultPixelRatio() const override { return Rational(1); }
    int getDefaultRepeatMode() const override { return 0; }
    Rational getDefaultRate() const override { return Rational(25); }
    int getDefaultStart() const override { return 0; }
    int getDefaultEnd() const override { return 0; }
    std::string getRenderFolder() const override { return {}; }
    static void up() { initialize(OPtr<PiProjectSettings>(new Settings)); }
    static void down() { finalize(); }
};

TEST(PiFile, RateFollowsTheProjectAndResetsGoBackToDefaults) {
    Plain before(3);
    EXPECT_EQ(before.getRate(), Rational(24));
    Settings::up();
    Plain after(3);
    EXPECT_EQ(after.getRate(), Rational(25));
    after.setRate(Rational(50));
    after.setRatio(Rational(2));
    after.resetRate();
    after.resetPixelRatio();
    EXPECT_EQ(std::pair(after.getRate(), after.getPixelRatio()),
              std::pair(Rational(25), Rational(1)));
    Settings::down();
    EXPECT_EQ(after.getPathText(), "/x/\xc3\xa9t\xc3\xa9.img");
    EXPECT_EQ(after.beginImageWrite(ImFormat(7, 5, ImPixelFormat(3, 8))), (GePoint<int>{7, 5}));
}

TEST(PiFile, EncodingsAndDetailsByComponents) {
    struct {
        int n;
        char const* encoding;
        char const* channels;
    } const cases[] = {{1, "Alpha", "Alpha"},
                       {2, "Lum, Alpha", "Lum,Alpha"},
                       {3, "RGB", "R,G,B"},
                       {4, "RGBA", "R,G,B,A"},
                       {5, nullptr, "Unknown"}};
    for (auto const& c : cases) {
        Plain const f(c.n);
        char const* e = f.getColourEncoding();
        EXPECT_EQ(std::string(e ? e : "(null)"), c.encoding ? c.encoding : "(null)") << c.n;
        EXPECT_EQ(f.getDetails()->getDetailString(),
                  std::string("Channels=[") + c.channels +
                      "] Depth=[16] Tiled=[No] PixelRatio=[Not present] ");
    }
}

TEST(PiImageFileDetails, DetailStringOrderAndReplacement) {
    EXPECT_EQ(PiImageFileDetails().getDetailString(),
              "Channels=[Unknown] Depth=[Unknown] Tiled=[No] PixelRatio=[Not present] ");
    PiImageFileDetails d(true, "32", "R,G,B");
    d.setDetail(PiImageFileDetails::PIXEL_RATIO, "");
    d.setDetail(PiImageFileDetails::CLIP_TYPE, "Film");
    d.addCustomDetail("Zeta", "1");
    d.addCustomDetail("Alpha", "old");
    d.addCustomDetail("Alpha", "new");
    EXPECT_EQ(d.getDetailString(),
              "Channels=[R,G,B] Depth=[32] Tiled=[Yes] ClipType=[Film]Alpha=[new]Zeta=[1]");
    EXPECT_EQ(d.getCustomDetails().size(), 2u);
}

TEST(PiFile, FormatOptionsGoThroughXml) {
    EXPECT_EQ(Plain(3).getDefaultFileFormatOptions(), "");
    std::string const defaults = Plain(3, true).getDefaultFileFormatOptions();
    EXPECT_NE(defaults.find("quality=\"high\""), std::string::npos) << defaults;
    Options o;
    o.setOptions("");
    EXPECT_EQ(o.reads, 0);
    o.setOptions("<Options quality='low'/>");
    EXPECT_EQ(std::pair(o.reads, o.quality), std::pair(1, std::string("low")));
    EXPECT_THROW(o.setOptions("<Options"), ExBase);
}

} // namespace
