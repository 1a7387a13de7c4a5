#include "HoUserSettings.h"

#include "LgLog.h"
#include "OsFile.h"
#include "XmlDocument.h"

#include <cerrno>
#include <cstdlib>

namespace Vn {

namespace {

char const* const kRoot = "UserSettings";
char const* const kFormatVersion = "1";

LgMinorGroup& logGroup() {
    static LgMinorGroup* group =
        new LgMinorGroup(LgMajorGroup::getInstanceForName("Ho"), "UserSettings");
    return *group;
}

// Refuses the file at an element, naming the file and the line.
[[noreturn]] void refuse(std::string const& fileName, XmlDocument const& doc, XmlElement const& at,
                         std::string const& why) {
    VN_THROW_MSG(ExBase,
                 "\"" + fileName + "\" line " + std::to_string(doc.getLineOf(at)) + ": " + why);
}

bool readFlag(std::string const& fileName, XmlDocument const& doc, XmlElement const& e) {
    std::string const text = e.getText();
    if (text == "true")
        return true;
    if (text == "false")
        return false;
    refuse(fileName, doc, e,
           "<" + e.getName() + "> holds \"" + text.substr(0, 32) + "\", neither true nor false");
}

std::string required(std::string const& fileName, XmlDocument const& doc, XmlElement const& e,
                     char const* attribute) {
    if (!e.hasAttribute(attribute))
        refuse(fileName, doc, e, "<" + e.getName() + "> has no \"" + attribute + "\"");
    return e.getAttribute(attribute);
}

} // namespace

OsFilePath HoUserSettings::getDefaultPath() {
    if (char const* file = std::getenv("VN_USER_SETTINGS_FILE"); file && *file)
        return OsFilePath(file);
    if (char const* config = std::getenv("XDG_CONFIG_HOME"); config && *config == '/')
        return OsFilePath(config).append("vn").append("settings.xml");
    if (char const* home = std::getenv("HOME"); home && *home == '/')
        return OsFilePath(home).append(".config").append("vn").append("settings.xml");
    return {};
}

HoUserSettings::Values HoUserSettings::parse(std::string_view text, std::string const& fileName) {
    XmlDocument doc;
    try {
        doc = XmlDocument::parse(text);
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "\"" + fileName + "\": " + e.getReason());
    }
    XmlElement const root = doc.getRoot();
    if (root.getName() != kRoot)
        refuse(fileName, doc, root, "the root is <" + root.getName() + ">, not <" + kRoot + ">");
    if (root.getAttribute("version") != kFormatVersion)
        refuse(fileName, doc, root,
               "version \"" + root.getAttribute("version").substr(0, 16) + "\" is not known");

    Values values;
    for (XmlElement e = root.getFirstChild(); !e.isNull(); e = e.getNextSibling()) {
        std::string const name = e.getName();
        if (name == "AutoKey") {
            values.autoKey = readFlag(fileName, doc, e);
        } else if (name == "VideoDevice") {
            std::string const device = required(fileName, doc, e, "name");
            if (!values.videoDevices.emplace(device, e.getText()).second)
                refuse(fileName, doc, e, "the device \"" + device + "\" is there twice");
        } else if (name == "RecentProjects") {
            for (XmlElement p = e.getFirstChild(); !p.isNull(); p = p.getNextSibling()) {
                if (p.getName() != "Project")
                    refuse(fileName, doc, p, "<" + p.getName() + "> is no <Project>");
                std::string const path = required(fileName, doc, p, "path");
                if (path.empty())
                    refuse(fileName, doc, p, "a recent project has an empty path");
                LiDate date;
                try {
                    date = LiDate::fromIso8601(required(fileName, doc, p, "date"));
                } catch (ExBase const& bad) {
                    refuse(fileName, doc, p, bad.getReason());
                }
                if (values.recentProjects.size() < kMaxRecentProjects)
                    values.recentProjects.emplace_back(OsFilePath(path), date);
            }
        } else {
            // A later version may add settings: an older one passes over what it does not know.
        }
    }
    return values;
}

std::string HoUserSettings::format(Values const& values) {
    XmlWriter w;
    w.openTag(kRoot);
    w.writeAttrib("version", kFormatVersion);
    w.openTag("AutoKey");
    w.writeText(values.autoKey ? "true" : "false");
    w.closeTag();
    for (auto const& [device, settings] : values.videoDevices) {
        w.openTag("VideoDevice");
        w.writeAttrib("name", device);
        if (!settings.empty())
            w.writeText(settings);
        w.closeTag();
    }
    w.openTag("RecentProjects");
    for (ProjectListEntry const& p : values.recentProjects) {
        w.openTag("Project");
        w.writeAttrib("path", p.getProjectPath().getString());
        w.writeAttrib("date", p.getDate().toIso8601());
        w.closeTag();
    }
    w.closeTag();
    w.closeTag();
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + w.toString();
}

OPtrRet<HoUserSettings> HoUserSettings::load(OsFilePath const& path) {
    if (path.isEmpty() || !OsFsUtils::fileExists(path))
        return OPtrRet<HoUserSettings>(new HoUserSettings(path));
    std::string const text = OsFsUtils::readFile(path);
    return OPtrRet<HoUserSettings>(new HoUserSettings(path, parse(text, path.getString())));
}

OPtrRet<ExBase> HoUserSettings::install(OsFilePath const& path) {
    OPtr<HoUserSettings> settings;
    OPtrRet<ExBase> failure;
    try {
        settings = load(path);
    } catch (ExBase const& e) {
        failure = e.clone();
        VN_LOG(logGroup(), 1, "user settings left at their defaults: " << e.getReason());
        settings.reset(new HoUserSettings(path));
    }
    PiUserSettings::initialize(std::move(settings));
    return failure;
}

void HoUserSettings::uninstall() {
    PiUserSettings::finalize();
}

HoUserSettings::HoUserSettings(OsFilePath path) : _path(std::move(path)) {}

HoUserSettings::HoUserSettings(OsFilePath path, Values values)
    : _path(std::move(path)), _values(std::move(values)) {}

void HoUserSettings::save() const {
    if (_path.isEmpty())
        return;
    OsFsUtils::createFilePath(_path, _path.getRoot(), OsFileTypes::Permissions(3, 0, 0));
    OsFsUtils::saveAtomically(_path, format(_values));
}

void HoUserSettings::setAutoKey(bool autoKey) {
    _values.autoKey = autoKey;
    save();
}

std::string HoUserSettings::getVideoDeviceSettings(std::string const& deviceName) const {
    auto const it = _values.videoDevices.find(deviceName);
    return it == _values.videoDevices.end() ? std::string() : it->second;
}

void HoUserSettings::setVideoDeviceSettings(std::string const& deviceName,
                                            std::string const& settings) {
    _values.videoDevices[deviceName] = settings;
    save();
}

void HoUserSettings::addRecentProject(OsFilePath const& projectPath, LiDate const& date) {
    // By path: entries of one moment are equal too, and another project must not go.
    ProjectList& list = _values.recentProjects;
    list.remove_if([&](ProjectListEntry const& e) { return e.getProjectPath() == projectPath; });
    list.emplace_front(projectPath, date);
    while (list.size() > kMaxRecentProjects)
        list.pop_back();
    save();
}

void HoUserSettings::removeRecentProject(OsFilePath const& projectPath) {
    _values.recentProjects.remove_if(
        [&](ProjectListEntry const& e) { return e.getProjectPath() == projectPath; });
    save();
}

} // namespace Vn
