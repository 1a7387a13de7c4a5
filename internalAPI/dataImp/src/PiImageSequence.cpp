#include "PiImageSequence.h"

#include "ExBase.h"
#include "OsFile.h"
#include "PiImageFile.h"
#include "XmlDocument.h"

#include <map>
#include <mutex>

namespace Vn {

namespace {
struct Factories {
    std::mutex mutex;
    std::map<std::string, PiImageSequence::Factory> byRoot;
};

Factories& factories() {
    static Factories* f = new Factories;
    return *f;
}
} // namespace

PiImageSequence::~PiImageSequence() = default;

void PiImageSequence::registerFactory(std::string const& rootName, Factory factory) {
    Factories& f = factories();
    std::lock_guard lock(f.mutex);
    f.byRoot[rootName] = factory;
}

void PiImageSequence::unregisterFactory(std::string const& rootName) {
    Factories& f = factories();
    std::lock_guard lock(f.mutex);
    f.byRoot.erase(rootName);
}

OPtrRet<PiImageSequence> PiImageSequence::create(std::string const& path) {
    if (path.empty())
        return {};
    std::string text;
    try {
        text = OsFsUtils::readFile(OsFilePath(path));
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "cannot read the image sequence \"" + path + "\": " + e.getReason());
    }
    return createFromText(text, path);
}

OPtrRet<PiImageSequence> PiImageSequence::createFromText(std::string const& text,
                                                         std::string const& name) {
    XmlDocument doc;
    try {
        doc = XmlDocument::parse(text);
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "the image sequence \"" + name + "\" is not XML: " + e.getReason());
    }
    XmlElement const root = doc.getRoot();
    Factory factory = nullptr;
    {
        Factories& f = factories();
        std::lock_guard lock(f.mutex);
        if (auto const it = f.byRoot.find(root.getName()); it != f.byRoot.end())
            factory = it->second;
    }
    if (!factory)
        VN_THROW_MSG(ExBase, "the image sequence \"" + name + "\" is of no known kind: <" +
                                 root.getName().substr(0, 32) + ">");
    try {
        OPtr<PiImageSequence> sequence = factory(root);
        if (!sequence)
            VN_THROW_MSG(ExBase, "no sequence was made");
        return sequence;
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "the image sequence \"" + name + "\" line " +
                                 std::to_string(doc.getLineOf(root)) + ": " + e.getReason());
    }
}

OPtrRet<PiImageFile> PiImageSequence::getImageForReading(int index,
                                                         ImMemory::Factory const& memory) const {
    return openImageForReading(index, memory);
}

ImFormat PiImageSequence::getFormatNoEx() const {
    try {
        return getFormat();
    } catch (ExBase const&) {
        return {};
    }
}

void PiImageSequence::setFileFormatOptions(std::string const&) {}

std::string PiImageSequence::getFileFormatOptions() const {
    return {};
}

bool PiImageSequence::nonExistentMediaAllowed() const {
    return true;
}

} // namespace Vn
