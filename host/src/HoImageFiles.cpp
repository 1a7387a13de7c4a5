#include "HoImageFiles.h"

#include "Assertions.h"
#include "HoRender.h"
#include "LiStringUtil.h"
#include "OsFile.h"
#include "OsMemoryArch.h"
#include "PiImageFileDetails.h"
#include "XmlDocument.h"

#include <OpenImageIO/imageio.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Vn {

namespace {

std::atomic<long> s_reads{0};
std::atomic<unsigned> s_temporaries{0};

std::string firstLine(std::string const& text) {
    std::string const line = text.substr(0, text.find('\n'));
    return line.empty() ? "unknown error" : line;
}

[[noreturn]] void refuse(std::string const& what, std::string const& path, std::string const& why) {
    VN_THROW_MSG(ExBase, "cannot " + what + " \"" + path + "\": " + why);
}

OIIO::TypeDesc typeOf(ImPixelFormat::Depth depth) {
    switch (depth) {
    case ImPixelFormat::UINT8:
        return OIIO::TypeDesc::UINT8;
    case ImPixelFormat::FLOAT16:
        return OIIO::TypeDesc::HALF;
    default:
        return OIIO::TypeDesc::FLOAT;
    }
}

// Integers wider than 8 bits need float to stay exact; half stays half.
ImPixelFormat::Depth depthOf(OIIO::TypeDesc const& type) {
    if (type == OIIO::TypeDesc::UINT8)
        return ImPixelFormat::UINT8;
    if (type == OIIO::TypeDesc::HALF)
        return ImPixelFormat::FLOAT16;
    return ImPixelFormat::FLOAT32;
}

Rational rationalOf(float ratio) {
    if (!std::isfinite(ratio) || ratio <= 0.0f || ratio > 1e6f)
        return Rational(1);
    auto const num = static_cast<std::int64_t>(std::lround(static_cast<double>(ratio) * 10000.0));
    std::int64_t const g = std::gcd(num, std::int64_t{10000});
    return num > 0 ? Rational(num / g, 10000 / g) : Rational(1);
}

void checkSeam(OsFaultInjector::Operation op, char const* what, std::string const& path) {
    if (int const e = OsFaultInjector::check(op))
        throw OsFileError(__FILE__, __LINE__, what, path, e);
}

// The first bytes of a file about to be read, for the checks below: a format's library trusts
// some header fields further than a damaged file deserves.
struct FileStart {
    // What an EXR header is read in first, and at most.
    static constexpr std::size_t kWindow = 64 << 10;
    static constexpr std::size_t kLargestWindow = 1 << 20;

    explicit FileStart(std::string const& p)
        : path(p), fd(::open(p.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat st {};
        if (fd.isOpen() && ::fstat(fd.get(), &st) == 0)
            size = static_cast<std::uint64_t>(st.st_size);
        widen(64);
    }
    // Reads up to n bytes from the start; false when that gives no more than there was.
    bool widen(std::size_t n) {
        n = static_cast<std::size_t>(std::min<std::uint64_t>(n, size));
        if (n <= head.size())
            return false;
        std::vector<unsigned char> more(n);
        if (::pread(fd.get(), more.data(), n, 0) != static_cast<ssize_t>(n))
            return false;
        head = std::move(more);
        return true;
    }
    bool startsWith(char const* magic, std::size_t n) const {
        return head.size() >= n && std::memcmp(head.data(), magic, n) == 0;
    }

    std::string const& path;
    OsFileDescriptor fd;
    std::uint64_t size = 0;
    std::vector<unsigned char> head;
};

// libpng leaves the image library's read callback by longjmp when a file ends early, and what
// the callback held is lost: a PNG whose chunks run past its end, or that ends without its last
// chunk, is refused before the library reads it.
void refuseTruncatedPng(FileStart const& f) {
    unsigned char head[8];
    // Each chunk: a big-endian length, a type, the data and a checksum.
    for (std::uint64_t at = 8;;) {
        if (at + 8 > f.size || ::pread(f.fd.get(), head, 8, static_cast<off_t>(at)) != 8)
            refuse("read", f.path, "the PNG file ends before its last chunk");
        std::uint64_t const length =
            static_cast<std::uint64_t>(head[0]) << 24 | head[1] << 16 | head[2] << 8 | head[3];
        if (length > 0x7fffffff || at + 12 + length > f.size)
            refuse("read", f.path,
                   "the PNG file's chunk at byte " + std::to_string(at) + " runs past its end");
        if (std::memcmp(head + 4, "IEND", 4) == 0)
            return;
        at += 12 + length;
    }
}

// OpenEXR sizes an attribute's value from the header before reading it, so a few wrong bytes
// make it allocate up to 2 GB. A header whose attribute runs past the file's end is refused
// before the library reads it. Only the file's first megabyte is walked: a header is rarely
// larger, and past it the library is left to judge.
void refuseOversizedExrHeader(FileStart& f) {
    f.widen(FileStart::kWindow);
    bool const multipart = f.head.size() > 5 && (f.head[5] & 0x10) != 0;
    std::size_t at = 8;
    // Skips a NUL-ended string; false when the bytes read end first.
    auto skipString = [&]() {
        auto const* end = static_cast<unsigned char const*>(
            std::memchr(f.head.data() + at, 0, f.head.size() - at));
        if (!end)
            return false;
        at = static_cast<std::size_t>(end - f.head.data()) + 1;
        return true;
    };
    for (;;) {
        // A header: attributes up to an empty name. Several headers end with an empty one.
        for (;;) {
            if (at >= f.head.size() && (!f.widen(FileStart::kLargestWindow) || at >= f.head.size()))
                return;
            if (f.head[at] == 0) {
                ++at;
                break;
            }
            std::size_t const attribute = at;
            if (!skipString() || !skipString() || at + 4 > f.head.size()) {
                // Cut by the window: read the whole first megabyte once and walk this one again.
                if (!f.widen(FileStart::kLargestWindow))
                    return;
                at = attribute;
                continue;
            }
            std::uint32_t const size = static_cast<std::uint32_t>(f.head[at]) |
                                       static_cast<std::uint32_t>(f.head[at + 1]) << 8 |
                                       static_cast<std::uint32_t>(f.head[at + 2]) << 16 |
                                       static_cast<std::uint32_t>(f.head[at + 3]) << 24;
            at += 4;
            if (size > f.size - at)
                refuse("read", f.path,
                       "the EXR header's attribute at byte " + std::to_string(attribute) +
                           " runs past the file's end");
            at += size;
        }
        if (!multipart || at >= f.head.size() || f.head[at] == 0)
            return;
    }
}

// The DPX reader allocates the user data the header announces before reading it: a header whose
// user data, or whose image data, would start or end past the file's end is refused first.
void refuseOversizedDpxHeader(FileStart const& f, bool bigEndian) {
    if (f.head.size() < 36)
        return;
    auto word = [&](int at) {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v |= static_cast<std::uint32_t>(f.head[at + (bigEndian ? i : 3 - i)]) << (8 * (3 - i));
        return v;
    };
    // The generic and industry headers come before the user data; unset fields are all ones.
    std::uint32_t const userSize = word(32);
    std::uint64_t const userEnd = 2048ULL + (userSize == 0xffffffffU ? 0 : userSize);
    if (word(4) > f.size || userEnd > f.size)
        refuse("read", f.path, "the DPX header announces data past the file's end");
}

void refuseDamagedHeader(std::string const& path) {
    FileStart f(path);
    if (f.startsWith("\x89PNG\r\n\x1a\n", 8))
        refuseTruncatedPng(f);
    else if (f.startsWith("\x76\x2f\x31\x01", 4))
        refuseOversizedExrHeader(f);
    else if (f.startsWith("SDPX", 4) || f.startsWith("XPDS", 4))
        refuseOversizedDpxHeader(f, f.startsWith("SDPX", 4));
}

// Runs one call into the image library, which may throw what its format libraries throw: an
// allocation a damaged header asks for, above all. It becomes the reader's own refusal.
template <class Call>
auto guarded(std::string const& path, Call&& call) -> decltype(call()) {
    try {
        return call();
    } catch (std::bad_alloc const&) {
        refuse("read", path, "the file asks for more memory than there is");
    } catch (std::exception const& e) {
        refuse("read", path, firstLine(e.what()));
    }
}

} // namespace

struct HoOiioImageFile::Imp {
    std::string path;
    std::unique_ptr<OIIO::ImageInput> in;
    OIIO::ImageSpec header;
    std::unique_ptr<OIIO::ImageOutput> out;
    std::string temporary;
    ImFormat writeFormat;
    bool writing = false;
    bool hasRate = false;
    Rational fileRate;
};

HoOiioImageFile::HoOiioImageFile(std::string const& path)
    : PiImageFile(nullptr, WideStringUtil::widenMB(path)), _imp(new Imp) {
    _imp->path = path;
}

HoOiioImageFile::~HoOiioImageFile() {
    if (_imp->writing) {
        try {
            abortImageWrite();
        } catch (ExBase const&) {
            // The temporary stays; the target was never touched.
        }
    }
}

OPtrRet<HoOiioImageFile> HoOiioImageFile::openForReading(std::string const& path) {
    OPtr<HoOiioImageFile> file(new HoOiioImageFile(path));
    Imp& imp = *file->_imp;
    refuseDamagedHeader(path);
    // Opened with a header to fill: the reader's own copy stays with it.
    imp.in = guarded(path, [&] { return OIIO::ImageInput::create(path); });
    if (!imp.in || !guarded(path, [&] { return imp.in->open(path, imp.header); }))
        refuse("read", path, firstLine(imp.in ? imp.in->geterror() : OIIO::geterror()));
    OIIO::ImageSpec const& s = imp.header;
    if (s.width < 1 || s.height < 1 || s.nchannels < 1 || s.depth != 1 ||
        s.width > getMaxRect().xmax || s.height > getMaxRect().ymax)
        refuse("read", path,
               "an image of " + std::to_string(s.width) + "x" + std::to_string(s.height) + "x" +
                   std::to_string(s.depth) + " pixels with " + std::to_string(s.nchannels) +
                   " channels is not a picture that can be read");
    // Rows and tiles are asked for at the origin plus a row: it must leave room for that.
    constexpr int kFarthestOrigin = 1 << 30;
    if (std::abs(static_cast<long long>(s.x)) > kFarthestOrigin ||
        std::abs(static_cast<long long>(s.y)) > kFarthestOrigin ||
        std::abs(static_cast<long long>(s.z)) > kFarthestOrigin)
        refuse("read", path,
               "the image's origin " + std::to_string(s.x) + "," + std::to_string(s.y) +
                   " is too far out");
    // A frame is read whole: one that needs more memory than this process may use is refused
    // now, not when its pixels are read, nor by the system stopping the process.
    std::uint64_t const usable = OsMemoryArch::getInstance().getUsableMemory();
    std::uint64_t const needed =
        static_cast<std::uint64_t>(s.width) * static_cast<std::uint64_t>(s.height) *
        static_cast<std::uint64_t>(file->getFormat().getPixelFormat().getPixelSize());
    if (usable > 0 && needed > usable)
        refuse("read", path,
               "an image of " + std::to_string(s.width) + "x" + std::to_string(s.height) +
                   " pixels needs " + std::to_string(needed >> 20) + " MB, more than the " +
                   std::to_string(usable >> 20) + " MB this process may use");
    float const ratio = s.get_float_attribute("PixelAspectRatio", 0.0f);
    if (ratio > 0.0f) {
        file->_pixelRatio = rationalOf(ratio);
        Rational const& r = file->_pixelRatio;
        file->_pixelRatioText =
            std::to_string(r.getNumerator()) +
            (r.getDenominator() == 1 ? "" : "/" + std::to_string(r.getDenominator()));
    }
    if (OIIO::ParamValue const* fps = s.find_attribute("FramesPerSecond", OIIO::TypeRational)) {
        int const* r = static_cast<int const*>(fps->data());
        if (r[0] > 0 && r[1] > 0) {
            imp.hasRate = true;
            imp.fileRate = Rational(r[0], r[1]);
            file->_rate = imp.fileRate;
        }
    }
    file->_components = std::min(s.nchannels, 4);
    file->_depth = static_cast<int>(s.format.size() * 8);
    return file;
}

OPtrRet<HoOiioImageFile> HoOiioImageFile::createForWriting(std::string const& path) {
    if (!OIIO::ImageOutput::create(path))
        refuse("write", path,
               "no image format writes the extension \"" + OsFilePath(path).getExtension() + "\"");
    return OPtrRet<HoOiioImageFile>(new HoOiioImageFile(path));
}

ImFormat HoOiioImageFile::getFormat() const {
    if (_imp->writing)
        return _imp->writeFormat;
    OIIO::ImageSpec const& s = _imp->header;
    int const comps = s.nchannels == 1 || s.nchannels == 3 ? 3 : 4;
    return ImFormat(s.width, s.height, ImPixelFormat(comps, depthOf(s.format)), _pixelRatio);
}

int HoOiioImageFile::getNbComponents() const {
    return _imp->writing ? _imp->writeFormat.getPixelFormat().getComps()
                         : std::min(_imp->header.nchannels, 4);
}

char const* HoOiioImageFile::getCompression() const {
    OIIO::ParamValue const* p = _imp->header.find_attribute("compression", OIIO::TypeString);
    return p ? *static_cast<char const* const*>(p->data()) : nullptr;
}

bool HoOiioImageFile::hasPixelRatio() const {
    return !_pixelRatioText.empty();
}

bool HoOiioImageFile::hasRate() const {
    return _imp->hasRate;
}

void HoOiioImageFile::resetRate() {
    PiImageFile::resetRate();
    if (_imp->hasRate)
        _rate = _imp->fileRate;
}

bool HoOiioImageFile::isTiled() const {
    return _imp->header.tile_width > 0;
}

OPtrRet<PiImageFileDetails> HoOiioImageFile::getDetails() const {
    OIIO::ImageSpec const& s = _imp->header;
    std::string channels;
    for (int c = 0; c < s.nchannels; ++c)
        channels += (c ? "," : "") + std::string(s.channel_name(c));
    int const bits =
        s.get_int_attribute("oiio:BitsPerSample", static_cast<int>(s.format.size() * 8));
    std::string depth = LiStringUtil::convertNb(bits);
    if (s.format.is_floating_point())
        depth += " float";
    OPtr<PiImageFileDetails> d(new PiImageFileDetails(isTiled(), depth, channels));
    d->setDetail(PiImageFileDetails::PIXEL_RATIO, getPixelRatioStringFromFile());
    if (char const* c = getCompression())
        d->addCustomDetail("Compression", c);
    d->addCustomDetail("Format", _imp->in ? _imp->in->format_name() : "");
    return d;
}

void HoOiioImageFile::readImage(GeRectangle<int> const& region, ImImage const& destination) {
    Imp& imp = *_imp;
    VN_ASSERT(imp.in);
    OIIO::ImageSpec const& s = imp.header;
    ImLayout const& layout = destination.getLayout();
    ImPixelFormat const& pf = layout.getPixelFormat();
    VN_ASSERT(region.xmin == 0 && region.xmax == s.width && region.ymin >= 0 &&
              region.ymax <= s.height && !region.isEmpty());
    VN_ASSERT(layout.getRegion().contains(region) &&
              pf.getComps() == getFormat().getPixelFormat().getComps());
    ++s_reads;
    ImWriteGuard const guard(destination);
    // The file's top line is the image's last row: its rows go downwards in memory.
    std::ptrdiff_t const ys = -static_cast<std::ptrdiff_t>(layout.getLineStride());
    std::ptrdiff_t const xs = pf.getPixelSize();
    OIIO::TypeDesc const type = typeOf(pf.getDepth());
    int const fileBegin = s.height - region.ymax;
    int const fileEnd = s.height - region.ymin;
    // Which file channels go to which component: grey to red, green and blue.
    struct Part {
        int chBegin, chEnd, comp;
    };
    std::vector<Part> parts;
    switch (s.nchannels) {
    case 1:
        parts = {{0, 1, 0}, {0, 1, 1}, {0, 1, 2}};
        break;
    case 2:
        parts = {{0, 1, 0}, {0, 1, 1}, {0, 1, 2}, {1, 2, 3}};
        break;
    default:
        parts = {{0, std::min(s.nchannels, 4), 0}};
    }
    auto fail = [&](OIIO::ImageInput& in) {
        refuse("read", imp.path, firstLine(in.geterror()));
    };
    std::size_t const compSize = static_cast<std::size_t>(pf.getComponentSize());
    if (s.tile_width <= 0) {
        std::byte* top = guard.getAddress(0, region.ymax - 1);
        for (Part const& p : parts)
            if (!guarded(imp.path, [&] {
                    return imp.in->read_scanlines(0, 0, s.y + fileBegin, s.y + fileEnd, 0,
                                                  p.chBegin, p.chEnd, type, top + p.comp * compSize,
                                                  xs, ys);
                }))
                fail(*imp.in);
        return;
    }
    // Tiles are read by whole tile rows; rows beyond the region go to a buffer of their own.
    int const th = s.tile_height;
    int const tileBegin = fileBegin - fileBegin % th;
    int const tileEnd = std::min(s.height, (fileEnd + th - 1) / th * th);
    bool const aligned = tileBegin == fileBegin && tileEnd == fileEnd;
    std::vector<std::byte> spare;
    std::byte* top = nullptr;
    std::ptrdiff_t stride = ys;
    if (aligned) {
        top = guard.getAddress(0, region.ymax - 1);
    } else {
        stride = xs * s.width;
        guarded(imp.path,
                [&] { spare.resize(static_cast<std::size_t>(stride) * (tileEnd - tileBegin)); });
        top = spare.data();
    }
    for (Part const& p : parts)
        if (!guarded(imp.path, [&] {
                return imp.in->read_tiles(0, 0, s.x, s.x + s.width, s.y + tileBegin, s.y + tileEnd,
                                          s.z, s.z + 1, p.chBegin, p.chEnd, type,
                                          top + p.comp * compSize, xs, stride, OIIO::AutoStride);
            }))
            fail(*imp.in);
    if (!aligned)
        for (int fy = fileBegin; fy < fileEnd; ++fy)
            std::memcpy(guard.getAddress(0, s.height - 1 - fy),
                        spare.data() + static_cast<std::size_t>(fy - tileBegin) * stride,
                        static_cast<std::size_t>(stride));
}

GePoint<int> HoOiioImageFile::beginImageWrite(ImFormat const& format) {
    Imp& imp = *_imp;
    VN_ASSERT(!imp.writing && !imp.in);
    ImPixelFormat const& pf = format.getPixelFormat();
    if (format.getWidth() < 1 || format.getHeight() < 1 || pf.getDepth() == ImPixelFormat::COMPLEX)
        refuse("write", imp.path,
               "an image of " + std::to_string(format.getWidth()) + "x" +
                   std::to_string(format.getHeight()) + " pixels of this format cannot be written");
    imp.temporary = temporaryBeside(imp.path);
    imp.out = OIIO::ImageOutput::create(imp.temporary);
    if (!imp.out)
        refuse("write", imp.path, "no image format writes its extension");
    OIIO::ImageSpec header(format.getWidth(), format.getHeight(), pf.getComps(),
                           typeOf(pf.getDepth()));
    if (pf.getComps() == 4)
        header.alpha_channel = 3;
    if (format.getPixelRatio() != Rational(1))
        header.attribute("PixelAspectRatio", static_cast<float>(format.getPixelRatio().toDouble()));
    checkSeam(OsFaultInjector::OPEN, "open", imp.temporary);
    if (!imp.out->open(imp.temporary, header)) {
        std::string const why = firstLine(imp.out->geterror());
        imp.out.reset();
        std::remove(imp.temporary.c_str());
        refuse("write", imp.path, why);
    }
    imp.writeFormat = format;
    imp.writing = true;
    return {format.getWidth(), format.getHeight()};
}

void HoOiioImageFile::writeImage(ImImageConst const& source) {
    Imp& imp = *_imp;
    VN_ASSERT(imp.writing);
    ImLayout const& layout = source.getLayout();
    ImPixelFormat const& pf = layout.getPixelFormat();
    VN_ASSERT(pf == imp.writeFormat.getPixelFormat() &&
              layout.getRegion().contains(imp.writeFormat.getRegion()));
    try {
        checkSeam(OsFaultInjector::WRITE, "write", imp.temporary);
        ImReadGuard const guard(source);
        int const h = imp.writeFormat.getHeight();
        if (!imp.out->write_image(typeOf(pf.getDepth()), guard.getAddress(0, h - 1),
                                  pf.getPixelSize(),
                                  -static_cast<std::ptrdiff_t>(layout.getLineStride())))
            refuse("write", imp.path, firstLine(imp.out->geterror()));
    } catch (...) {
        abortImageWrite();
        throw;
    }
}

void HoOiioImageFile::endImageWrite() {
    Imp& imp = *_imp;
    VN_ASSERT(imp.writing);
    try {
        checkSeam(OsFaultInjector::CLOSE, "close", imp.temporary);
        bool const ok = imp.out->close();
        std::string const why = ok ? std::string() : firstLine(imp.out->geterror());
        imp.out.reset();
        if (!ok)
            refuse("write", imp.path, why);
    } catch (...) {
        abortImageWrite();
        throw;
    }
    imp.writing = false;
    commitTemporary(imp.temporary, imp.path);
}

void HoOiioImageFile::abortImageWrite() {
    Imp& imp = *_imp;
    if (!imp.writing)
        return;
    imp.writing = false;
    imp.out.reset();
    closeStreamQuietly();
    std::remove(imp.temporary.c_str());
}

long HoOiioImageFile::getReadCount() noexcept {
    return s_reads.load();
}

std::string HoOiioImageFile::temporaryBeside(std::string const& target) {
    OsFilePath const t(target);
    std::string const ext = t.getExtension();
    std::string const name = "." + t.getBaseName() + ".partial-" + std::to_string(::getpid()) +
                             "-" + std::to_string(s_temporaries++) + (ext.empty() ? "" : "." + ext);
    OsFilePath const parent = t.getParent();
    return parent.isEmpty() ? name : parent.append(name).getString();
}

void HoOiioImageFile::commitTemporary(std::string const& temporary, std::string const& target) {
    try {
        checkSeam(OsFaultInjector::OPEN, "open", temporary);
        OsFileDescriptor fd(::open(temporary.c_str(), O_RDONLY | O_CLOEXEC));
        if (!fd.isOpen())
            throw OsFileError(__FILE__, __LINE__, "open", temporary, errno);
        checkSeam(OsFaultInjector::FSYNC, "fsync", temporary);
        if (::fsync(fd.get()) != 0)
            throw OsFileError(__FILE__, __LINE__, "fsync", temporary, errno);
        checkSeam(OsFaultInjector::CLOSE, "close", temporary);
        {
            OsFile::FileDescriptorManipGuard const guard;
            if (::close(fd.release()) != 0)
                throw OsFileError(__FILE__, __LINE__, "close", temporary, errno);
        }
        OsFsUtils::rename(OsFilePath(temporary), OsFilePath(target));
    } catch (...) {
        std::remove(temporary.c_str());
        throw;
    }
    OsFilePath const folder = OsFilePath(target).getParent();
    OsFsUtils::fsyncFolder(folder.isEmpty() ? OsFilePath(".") : folder);
}

} // namespace Vn

namespace Vn {

namespace {
int frameAttribute(XmlElement const& root, char const* name) {
    std::string const text = root.getAttribute(name);
    long long v = 0;
    std::size_t used = 0;
    try {
        v = std::stoll(text, &used);
    } catch (std::logic_error const&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || v < -100'000'000 || v > 100'000'000)
        VN_THROW_MSG(ExBase, std::string("\"") + name + "\" is \"" + text.substr(0, 32) +
                                 "\", not a frame number");
    return static_cast<int>(v);
}
} // namespace

void HoNumberedSequence::registerKind() {
    PiImageSequence::registerFactory(kRootName, &HoNumberedSequence::fromXml);
}

OPtrRet<PiImageSequence> HoNumberedSequence::fromXml(XmlElement const& root) {
    for (auto const& [name, value] : root.getAttributes())
        if (name != "pattern" && name != "first" && name != "last" && name != "missing")
            VN_THROW_MSG(ExBase, "unknown attribute \"" + name.substr(0, 32) + "\"");
    std::string const pattern = root.getAttribute("pattern");
    if (!HoImageFile::hasFramePattern(pattern))
        VN_THROW_MSG(ExBase, "the pattern \"" + pattern.substr(0, 256) +
                                 "\" has no frame number ('#' or '%04d')");
    // A printf width beyond two digits pads nothing sensible and could ask for gigabytes.
    std::string const name = OsFilePath(pattern).getFileName();
    for (std::size_t p = name.find('%'); p != std::string::npos; p = name.find('%', p + 1)) {
        std::size_t const digits = name.find_first_not_of("0123456789", p + 1) - (p + 1);
        if (digits > 2)
            VN_THROW_MSG(ExBase, "the pattern \"" + pattern.substr(0, 256) +
                                     "\" pads frame numbers beyond 99 digits");
    }
    int const first = frameAttribute(root, "first");
    int const last = frameAttribute(root, "last");
    if (last < first || static_cast<long long>(last) - first >= kMaxFrames)
        VN_THROW_MSG(ExBase, "the frames " + std::to_string(first) + "-" + std::to_string(last) +
                                 " are not a range of 1 to " + std::to_string(kMaxFrames) +
                                 " frames");
    std::string const missing =
        root.hasAttribute("missing") ? root.getAttribute("missing") : "error";
    if (missing != "error" && missing != "hold")
        VN_THROW_MSG(ExBase,
                     "\"missing\" is \"" + missing.substr(0, 32) + "\", neither error nor hold");
    return OPtrRet<PiImageSequence>(
        new HoNumberedSequence(pattern, first, last, missing == "hold"));
}

HoNumberedSequence::HoNumberedSequence(std::string pattern, int first, int last, bool holdMissing)
    : _pattern(std::move(pattern)), _first(first), _last(last), _holdMissing(holdMissing) {
    VN_ASSERT(first <= last);
}

std::string HoNumberedSequence::getImagePath(int index) const {
    if (index < 0 || index >= getNbImages())
        VN_THROW_MSG(ExBase, "image " + std::to_string(index) + " is not in the sequence \"" +
                                 _pattern + "\" of " + std::to_string(getNbImages()) + " images");
    return HoImageFile::expandFramePattern(_pattern, _first + index);
}

OPtrRet<PiImageFile> HoNumberedSequence::openImageForReading(int index,
                                                             ImMemory::Factory const&) const {
    std::string path = getImagePath(index);
    int frame = _first + index;
    if (!OsFsUtils::fileExists(OsFilePath(path))) {
        if (!_holdMissing)
            VN_THROW_MSG(ExBase, "frame " + std::to_string(frame) + " is missing: no file \"" +
                                     path + "\"");
        // The nearest frame on disk, the earlier on a tie.
        bool found = false;
        for (int d = 1; !found && (index - d >= 0 || index + d < getNbImages()); ++d)
            for (int i : {index - d, index + d})
                if (!found && i >= 0 && i < getNbImages() &&
                    OsFsUtils::fileExists(OsFilePath(getImagePath(i)))) {
                    path = getImagePath(i);
                    frame = _first + i;
                    found = true;
                }
        if (!found)
            VN_THROW_MSG(ExBase, "no frame of the sequence \"" + _pattern + "\" is on disk");
    }
    try {
        return HoOiioImageFile::openForReading(path);
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "frame " + std::to_string(frame) + ": " + e.getReason());
    }
}

ImFormat HoNumberedSequence::getFormat() const {
    // The first frame on disk sets the format; with missing frames held, any one may.
    return getImageForReading(0)->getFormat();
}

std::string HoNumberedSequence::toXml() const {
    XmlWriter w;
    w.openTag(kRootName);
    w.writeAttrib("pattern", _pattern);
    w.writeAttrib("first", std::to_string(_first));
    w.writeAttrib("last", std::to_string(_last));
    w.writeAttrib("missing", _holdMissing ? "hold" : "error");
    w.closeTag();
    return w.toString();
}

} // namespace Vn

#include "IxConvertUtil.h"
#include "IxImageOps.h"
#include "IxMemResourceImp.h"
#include "IxTileManip.h"
#include "PxRequestMgr.h"

#include <algorithm>
#include <limits>
#include <mutex>

namespace Vn {

namespace {

// Tiles over a cached image's memory, through the engine's own tile maker.
struct TileView : IxTileManip {
    using IxTileManip::createTile;
};

// The box average of each block of 2^scale x 2^scale pixels. The blocks on the right and top
// edges average the pixels they cover: a proxy's edges do not darken.
ImImage boxReduce(ImImage const& full, int scale) {
    ImLayout const& layout = full.getLayout();
    ImPixelFormat const& pf = layout.getPixelFormat();
    GeRectangle<int> const& r = layout.getRegion();
    int const w = r.width();
    int const h = r.height();
    long long const n = 1LL << scale;
    int const sw = static_cast<int>((w + n - 1) / n);
    int const sh = static_cast<int>((h + n - 1) / n);
    ImImage out = ImImage::create(ImLayout(pf, GeRectangle<int>(0, sw, 0, sh)), "HoImageFileNode");
    ImReadGuard const src(full);
    ImWriteGuard const dst(out);
    std::vector<CoRgbaColorTyped<float>> line(static_cast<std::size_t>(w));
    std::vector<CoRgbaColorTyped<float>> reduced(static_cast<std::size_t>(sw));
    std::vector<CoRgbaColorTyped<double>> sums(static_cast<std::size_t>(sw));
    for (int y = 0; y < sh; ++y) {
        std::fill(sums.begin(), sums.end(), CoRgbaColorTyped<double>{});
        long long const y0 = y * n;
        long long const y1 = std::min<long long>(h, y0 + n);
        for (long long yy = y0; yy < y1; ++yy) {
            IxConvertUtil::readFrom(line.data(),
                                    src.getAddress(r.xmin, r.ymin + static_cast<int>(yy)), w, pf);
            for (int x = 0; x < w; ++x) {
                CoRgbaColorTyped<double>& s = sums[static_cast<std::size_t>(x >> scale)];
                CoRgbaColorTyped<float> const& p = line[static_cast<std::size_t>(x)];
                s.r += p.r;
                s.g += p.g;
                s.b += p.b;
                s.a += p.a;
            }
        }
        for (int x = 0; x < sw; ++x) {
            long long const x0 = x * n;
            double const count =
                static_cast<double>((std::min<long long>(w, x0 + n) - x0) * (y1 - y0));
            CoRgbaColorTyped<double> const& s = sums[static_cast<std::size_t>(x)];
            reduced[static_cast<std::size_t>(x)] = {
                static_cast<float>(s.r / count), static_cast<float>(s.g / count),
                static_cast<float>(s.b / count), static_cast<float>(s.a / count)};
        }
        IxConvertUtil::writeTo(dst.getAddress(0, y), reduced.data(), sw, pf);
    }
    return out;
}

} // namespace

// An image and its buffer as tile memory; no memory when the buffer is too large for a tile,
// whose pixels are then copied.
struct HoImageFileNode::Held {
    ImImage image;
    RCShdPtr<IxMemory> memory;
};

// Frames and their proxies, by frame and scale, each in a slot. A slot's state word holds a
// resident flag above a count of the readers pinning it: a reader pins, and when it finds the
// flag copies the image's references and unpins, all without a lock. Eviction clears the flag
// only on an unpinned slot and under the slot's load lock, so it never pulls an image from
// under a reader; tiles already served keep their memory by reference.
struct HoImageFileNode::Cache {
    static constexpr std::uint64_t kResident = std::uint64_t{1} << 63;

    using Held = HoImageFileNode::Held;
    struct Slot {
        std::atomic<std::uint64_t> state{0};
        std::atomic<std::uint64_t> lastUse{0};
        // Loads and evictions of this slot, one at a time.
        std::mutex load;
        // Written only under `load` while the slot is not resident.
        Held held;
    };
    struct Frame {
        explicit Frame(int scales) : slots(new Slot[static_cast<std::size_t>(scales)]) {}
        std::unique_ptr<Slot[]> slots;
    };

    Cache(std::size_t b, int count, int scales)
        : budget(b), nbScales(scales), frames(new std::atomic<Frame*>[count]()), nbFrames(count) {}
    ~Cache() {
        for (int i = 0; i < nbFrames; ++i)
            delete frames[i].load(std::memory_order_relaxed);
    }

    Slot& slot(int index, int scale) {
        std::atomic<Frame*>& entry = frames[index];
        Frame* frame = entry.load(std::memory_order_acquire);
        if (!frame) [[unlikely]] {
            auto made = std::make_unique<Frame>(nbScales);
            if (entry.compare_exchange_strong(frame, made.get(), std::memory_order_acq_rel,
                                              std::memory_order_acquire))
                frame = made.release();
        }
        return frame->slots[scale];
    }

    bool copyIfResident(Slot& s, Held& out) {
        std::uint64_t const seen = s.state.fetch_add(1, std::memory_order_acquire);
        bool const found = (seen & kResident) != 0;
        if (found) {
            out = s.held;
            s.lastUse.store(clock.fetch_add(1, std::memory_order_relaxed) + 1,
                            std::memory_order_relaxed);
        }
        s.state.fetch_sub(1, std::memory_order_release);
        return found;
    }

    // Under the slot's load lock.
    void publish(Slot& s, ImImage image) {
        s.held.image = std::move(image);
        MbBuffer const& buffer = s.held.image.getBuffer();
        s.held.memory = buffer.getSize() <= std::numeric_limits<std::uint32_t>::max()
                            ? RCShdPtr<IxMemory>(new IxMemResourceImp::TileMemoryBuffer(buffer))
                            : RCShdPtr<IxMemory>();
        s.lastUse.store(clock.fetch_add(1, std::memory_order_relaxed) + 1,
                        std::memory_order_relaxed);
        s.state.fetch_or(kResident, std::memory_order_release);
    }

    // Counts a loaded image and lets the least recently used others go while over the budget;
    // one pinned or being loaded stays for now.
    void admit(Slot& s, std::size_t size) {
        std::vector<Held> dropped;
        std::lock_guard lock(book);
        resident.emplace_back(&s, size);
        std::size_t total = bytes.fetch_add(size, std::memory_order_relaxed) + size;
        if (total <= budget)
            return;
        std::vector<std::pair<std::uint64_t, std::size_t>> order;
        for (std::size_t i = 0; i < resident.size(); ++i)
            order.emplace_back(resident[i].first->lastUse.load(std::memory_order_relaxed), i);
        std::sort(order.begin(), order.end());
        for (auto const& [used, i] : order) {
            if (total <= budget)
                break;
            Slot* const victim = resident[i].first;
            if (victim == &s)
                continue;
            std::unique_lock const loading(victim->load, std::try_to_lock);
            std::uint64_t expected = kResident;
            if (!loading || !victim->state.compare_exchange_strong(
                                expected, 0, std::memory_order_acquire, std::memory_order_relaxed))
                continue;
            dropped.push_back(std::exchange(victim->held, Held{}));
            bytes.fetch_sub(resident[i].second, std::memory_order_relaxed);
            total -= resident[i].second;
            resident[i].first = nullptr;
        }
        std::erase_if(resident, [](auto const& r) { return r.first == nullptr; });
    }

    std::size_t budget;
    int nbScales;
    std::unique_ptr<std::atomic<Frame*>[]> frames;
    int nbFrames;
    std::atomic<std::uint64_t> clock{0};
    std::atomic<std::size_t> bytes{0};
    // The resident list; hits never take it.
    std::mutex book;
    std::vector<std::pair<Slot*, std::size_t>> resident;
};

HoImageFileNode::HoImageFileNode(PxNode::Init const& init,
                                 std::shared_ptr<PiImageSequence const> sequence,
                                 std::size_t cacheBytes)
    : PxNode(init), _sequence(std::move(sequence)) {
    VN_ASSERT(_sequence);
    OPtr<PiImageFile> const first = _sequence->getImageForReading(0);
    _fileFormat = first->getFormat();
    ImPixelFormat const& pf = _fileFormat.getPixelFormat();
    _format = PxImageFormat(
        IxPixelFormat(pf.getComps(), pf.getDepth(), _fileFormat.getPixelRatio()), first->getRate());
    // Beyond the scale that makes one pixel of the frame, every proxy is that pixel.
    int const side = std::max(_fileFormat.getWidth(), _fileFormat.getHeight());
    while (side > (1 << _maxScale))
        ++_maxScale;
    _cache = std::make_unique<Cache>(cacheBytes, _sequence->getNbImages(), _maxScale + 1);
}

HoImageFileNode::~HoImageFileNode() = default;

int HoImageFileNode::frameIndexAt(double time, PxValidityInterval& vi) const {
    Rational const& rate = _format.getFrameRate();
    double const r = rate.toDouble();
    int const last = _sequence->getNbImages() - 1;
    // Frame times are multiples of 1 / rate: a hair's tolerance keeps them on their frame.
    double const f = std::floor(time * r + 1e-6);
    int const index = f <= 0.0 ? 0 : f >= last ? last : static_cast<int>(f);
    double const low = index == 0 ? PxValidityInterval::kNegInfinity : index / r;
    double const high = index == last ? PxValidityInterval::kPosInfinity : (index + 1) / r;
    vi &= PxValidityInterval(low, high);
    return index;
}

std::size_t HoImageFileNode::getCachedBytes() const {
    return _cache->bytes.load(std::memory_order_relaxed);
}

PxRODResult HoImageFileNode::getImageROD(PxTimeStreamContext const&) const {
    float const aspect = _format.getAspectRatio();
    return {GeRectangle<float>(0.0f, static_cast<float>(_fileFormat.getWidth()) * aspect, 0.0f,
                               static_cast<float>(_fileFormat.getHeight())),
            PxValidityInterval::FULL};
}

ImImage HoImageFileNode::readFrame(int index) const {
    OPtr<PiImageFile> const file = _sequence->getImageForReading(index);
    ImFormat const f = file->getFormat();
    if (f.getWidth() != _fileFormat.getWidth() || f.getHeight() != _fileFormat.getHeight() ||
        !(f.getPixelFormat() == _fileFormat.getPixelFormat()))
        VN_THROW_MSG(ExBase, "frame " + std::to_string(index) + " (\"" + file->getPathText() +
                                 "\") differs in size or pixels from the first");
    // Straight into the layout tiles are served from.
    ImImage image = ImImage::create(ImLayout(f.getPixelFormat(), f.getRegion()), "HoImageFileNode");
    file->beginImageRead({f.getWidth(), f.getHeight()});
    file->readImage(f.getRegion(), image);
    file->endImageRead();
    return image;
}

// The frame at a scale, read or reduced at its first use. Loading it holds the slot's lock,
// inside the engine's blocking guard: a reader that misses waits for the one loading.
void HoImageFileNode::hold(int index, int scale, Held& out) const {
    Cache& cache = *_cache;
    Cache::Slot& s = cache.slot(index, scale);
    if (cache.copyIfResident(s, out))
        return;
    std::size_t loaded = 0;
    {
        PxWorkerBlockingGuard const blocking;
        std::lock_guard const lock(s.load);
        if (cache.copyIfResident(s, out))
            return;
        if (scale == 0) {
            cache.publish(s, readFrame(index));
        } else {
            Held full;
            hold(index, 0, full);
            cache.publish(s, boxReduce(full.image, scale));
        }
        out = s.held;
        loaded = s.held.image.getLayout().getBufferSize();
    }
    cache.admit(s, loaded);
}

PxImageResult HoImageFileNode::getImageResult(PxImageContext const& context) const {
    if (context.isOutside())
        return {allocateEmptyImageBuffer(), PxValidityInterval::FULL};
    PxValidityInterval vi = PxValidityInterval::FULL;
    int const index = frameIndexAt(context.getTime(), vi);
    GeRectangle<int> const region = computeTileRegion(context, vi);
    if (region.isEmpty())
        return {allocateImageBuffer(context, {}, region), vi};

    Held held;
    hold(index, std::min(context.getScale(), _maxScale), held);
    ImLayout const& layout = held.image.getLayout();
    VN_ASSERT(layout.getRegion().contains(region));
    IxPixelFormat const& format = _format.getPixelFormat();
    if (held.memory)
        return {TileView::createTile(
                    format, region, held.memory, {}, layout.getLineStride(),
                    static_cast<std::uint32_t>(layout.getByteOffset(region.xmin, region.ymin))),
                vi};
    IxTile const tile = allocateImageBuffer(context, {}, region);
    IxWriteGuard const dst(tile);
    ImReadGuard const src(held.image);
    IpPixels const pixels{const_cast<std::byte*>(src.getFirst()), layout.getLineStride(),
                          layout.getPixelFormat(), layout.getRegion()};
    ipCopy(ipPixelsOf(dst), pixels, region);
    return {dst.getTile(), vi};
}

} // namespace Vn
