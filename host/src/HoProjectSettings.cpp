#include "HoProjectSettings.h"

#include "ExBase.h"
#include "PiConfigFile.h"
#include "XmlDocument.h"

#include <charconv>
#include <limits>

namespace Vn {

namespace {

char const* const kRoot = "Config";
char const* const kSettings = "ProjectSettings";

struct Reader {
    XmlDocument const& doc;
    XmlElement element;
    std::string const& fileName;

    [[noreturn]] void refuse(std::string const& why) const {
        VN_THROW_MSG(ExBase, "\"" + fileName + "\" line " + std::to_string(doc.getLineOf(element)) +
                                 ": " + why);
    }
    [[noreturn]] void bad(std::string const& name, std::string const& text,
                          char const* expected) const {
        refuse("\"" + name + "\" is \"" + text.substr(0, 32) + "\", not " + expected);
    }

    std::int64_t integer(std::string const& name, std::string const& text, std::int64_t lo,
                         std::int64_t hi) const {
        std::int64_t v = 0;
        auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
        if (ec != std::errc() || end != text.data() + text.size() || v < lo || v > hi)
            bad(name, text,
                ("a whole number from " + std::to_string(lo) + " to " + std::to_string(hi))
                    .c_str());
        return v;
    }

    // "25" or "30000/1001", above 0.
    Rational rational(std::string const& name, std::string const& text) const {
        std::size_t const slash = text.find('/');
        constexpr std::int64_t kMax = 1'000'000'000;
        char const* const expected = "a ratio above 0 such as 25 or 30000/1001";
        if (text.empty() || slash == 0 || slash + 1 == text.size())
            bad(name, text, expected);
        std::int64_t num = 0;
        std::int64_t den = 1;
        auto const digits = [&](std::string const& part, std::int64_t& v) {
            auto const [end, ec] = std::from_chars(part.data(), part.data() + part.size(), v);
            if (ec != std::errc() || end != part.data() + part.size() || v < 1 || v > kMax)
                bad(name, text, expected);
        };
        digits(text.substr(0, slash), num);
        if (slash != std::string::npos)
            digits(text.substr(slash + 1), den);
        return Rational(num, den);
    }
};

} // namespace

HoProjectSettings::Values HoProjectSettings::parse(XmlDocument const& doc,
                                                   std::string const& fileName) {
    XmlElement const root = doc.getRoot();
    Reader r{doc, root, fileName};
    if (root.getName() != kRoot)
        r.refuse("the root is <" + root.getName().substr(0, 32) + ">, not <" + kRoot + ">");
    Values v;
    std::vector<XmlElement> const all = root.getChildren(kSettings);
    if (all.empty())
        return v;
    r.element = all.front();
    if (all.size() > 1) {
        r.element = all[1];
        r.refuse(std::string("a second <") + kSettings + ">");
    }
    constexpr int kMaxSize = 1 << 20;
    constexpr std::int64_t kMaxFrame = 10'000'000;
    for (auto const& [name, text] : r.element.getAttributes()) {
        if (name == "width")
            v.width = static_cast<int>(r.integer(name, text, 1, kMaxSize));
        else if (name == "height")
            v.height = static_cast<int>(r.integer(name, text, 1, kMaxSize));
        else if (name == "components") {
            std::int64_t const c = r.integer(name, text, 1, 4);
            if (c == 2)
                r.bad(name, text, "1, 3 or 4");
            v.components = static_cast<IxPixelFormat::Comps>(c);
        } else if (name == "depth") {
            if (text == "uint8")
                v.depth = IxPixelFormat::UINT8;
            else if (text == "half")
                v.depth = IxPixelFormat::FLOAT16;
            else if (text == "float")
                v.depth = IxPixelFormat::FLOAT32;
            else
                r.bad(name, text, "uint8, half or float");
        } else if (name == "pixelRatio")
            v.pixelRatio = r.rational(name, text);
        else if (name == "rate")
            v.rate = r.rational(name, text);
        else if (name == "repeatMode")
            v.repeatMode = static_cast<int>(r.integer(name, text, 0, 3));
        else if (name == "start")
            v.start = static_cast<int>(r.integer(name, text, -kMaxFrame, kMaxFrame));
        else if (name == "end")
            v.end = static_cast<int>(r.integer(name, text, -kMaxFrame, kMaxFrame));
        else if (name == "renderFolder")
            v.renderFolder = text;
        else
            r.refuse("<" + std::string(kSettings) + "> has an unknown attribute \"" +
                     name.substr(0, 32) + "\"");
    }
    if (v.end < v.start)
        r.refuse("the time range " + std::to_string(v.start) + "-" + std::to_string(v.end) +
                 " ends before it starts");
    return v;
}

HoProjectSettings::Values HoProjectSettings::parse(std::string_view text,
                                                   std::string const& fileName) {
    XmlDocument doc;
    try {
        doc = XmlDocument::parse(text);
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "\"" + fileName + "\": " + e.getReason());
    }
    return parse(doc, fileName);
}

HoProjectSettings::Values HoProjectSettings::fromConfiguration() {
    UPtr<const XmlDocument> const doc = PiConfigFile::getXmlDocument();
    return parse(*doc, PiConfigFile::getLoadedPath().getString());
}

void HoProjectSettings::install(Values const& values) {
    PiProjectSettings::initialize(OPtr<PiProjectSettings>(new HoProjectSettings(values)));
}

void HoProjectSettings::uninstall() {
    PiProjectSettings::finalize();
}

} // namespace Vn
