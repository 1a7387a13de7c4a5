#include "PiFile.h"

#include "ExBase.h"
#include "LgLog.h"
#include "LiStringUtil.h"
#include "OsFile.h"
#include "PiImageFile.h"
#include "PiImageFileDetails.h"
#include "PiProjectSettings.h"
#include "XmlDocument.h"

#include <sstream>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Vn {

namespace {
Rational defaultRate() {
    return PiProjectSettings::isInitialized() ? PiProjectSettings::getInstance().getDefaultRate()
                                              : Rational(24);
}

LgMinorGroup& logGroup() {
    static LgMinorGroup* group = new LgMinorGroup(LgMajorGroup::getInstanceForName("Pi"), "File");
    return *group;
}
} // namespace

PiFile::FormatOptionsUI::~FormatOptionsUI() = default;

std::string PiFile::FormatOptionsUI::getOptions() const {
    std::ostringstream text;
    XmlWriter writer(text, 0);
    writeOptions(writer);
    return text.str();
}

void PiFile::FormatOptionsUI::setOptions(std::string const& options) {
    if (options.empty())
        return;
    XmlDocument const doc = XmlDocument::parse(options);
    readOptions(doc.getRoot());
}

void PiFile::FormatOptionsUI::addChannelGroupSelectionChangedCb(CbHandler<const std::string>*) {}
void PiFile::FormatOptionsUI::removeChannelGroupSelectionChangedCb(CbHandler<const std::string>*) {}
void PiFile::FormatOptionsUI::addChannelViewSelectionChangedCb(CbHandler<const std::string>*) {}
void PiFile::FormatOptionsUI::removeChannelViewSelectionChangedCb(CbHandler<const std::string>*) {}
void PiFile::FormatOptionsUI::addChannelAssignmentChangedCb(CbHandler<CbEmptyType>*) {}
void PiFile::FormatOptionsUI::removeChannelAssignmentChangedCb(CbHandler<CbEmptyType>*) {}

PiFile::PiFile(std::FILE* stream, std::wstring path)
    : _stream(stream), _path(std::move(path)), _rate(defaultRate()) {}

PiFile::~PiFile() {
    closeStreamQuietly();
}

std::string PiFile::getPathText() const {
    return WideStringUtil::narrowMB(_path);
}

namespace {
// Closes the stream once; the system's error number when the close failed, else 0.
int closeOnce(std::FILE*& stream) noexcept {
    if (!stream)
        return 0;
    OsFile::FileDescriptorManipGuard const guard;
    int const rc = std::fclose(std::exchange(stream, nullptr));
    return rc != 0 ? errno : 0;
}
} // namespace

void PiFile::closeStreamQuietly() noexcept {
    if (int const error = closeOnce(_stream))
        VN_LOG(logGroup(), 0,
               "closing \"" << getPathText() << "\" failed: " << std::strerror(error));
}

void PiFile::closeStream() {
    if (int const error = closeOnce(_stream))
        throw OsFileError(__FILE__, __LINE__, "close", getPathText(), error);
}

std::string PiFile::getPixelRatioStringFromFile() const {
    return _pixelRatioText.empty() ? "Not present" : _pixelRatioText;
}

char const* PiFile::getCompression() const {
    return nullptr;
}

char const* PiFile::getColourEncoding() const {
    switch (getNbComponents()) {
    case 1:
        return "Alpha";
    case 2:
        return "Lum, Alpha";
    case 3:
        return "RGB";
    case 4:
        return "RGBA";
    default:
        return nullptr;
    }
}

float PiFile::getGamma() const {
    return 1.0f;
}

bool PiFile::isHomogeneous() const {
    return true;
}

bool PiFile::hasPixelRatio() const {
    return false;
}

void PiFile::resetPixelRatio() {
    _pixelRatio = Rational(1);
}

bool PiFile::hasRate() const {
    return false;
}

void PiFile::resetRate() {
    _rate = defaultRate();
}

OPtrRet<PiFile::FormatOptionsUI> PiFile::getFileFormatOptionsUI() const {
    return {};
}

std::string PiFile::getDefaultFileFormatOptions() const {
    OPtr<FormatOptionsUI> const ui = getFileFormatOptionsUI();
    return ui ? ui->getOptions() : std::string();
}

void PiFile::setFileFormatOptions(std::string const&) {}

int PiImageFile::getNbImages() const {
    return 1;
}

OPtrRet<PiImageFileDetails> PiImageFile::getDetails() const {
    std::string const depth =
        LiStringUtil::convertNb(getFormat().getPixelFormat().getComponentSize() * 8);
    char const* const channels[] = {"Unknown", "Alpha", "Lum,Alpha", "R,G,B", "R,G,B,A"};
    int const n = getNbComponents();
    return OPtrRet<PiImageFileDetails>(
        new PiImageFileDetails(false, depth, channels[n >= 1 && n <= 4 ? n : 0]));
}

void PiImageFile::beginImageRead(GePoint<int> const&) {}

bool PiImageFile::readsEntireImage() const {
    return true;
}

void PiImageFile::endImageRead() {}

bool PiImageFile::writeOrderIsBottomUp() const {
    return true;
}

GePoint<int> PiImageFile::beginImageWrite(ImFormat const& format) {
    return {format.getWidth(), format.getHeight()};
}

void PiImageFile::endImageWrite() {}

void PiImageFile::abortImageWrite() {
    closeStreamQuietly();
    OsFsUtils::removeFile(OsFilePath(getPathText()));
}

} // namespace Vn
