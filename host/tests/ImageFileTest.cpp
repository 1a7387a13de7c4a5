#include "HoImageFiles.h"
#include "HoRender.h"
#include "InPackageInit.h"
#include "IxConvertUtil.h"
#include "PiImageFileDetails.h"
#include "PxImageRequests.h"
#include "PxRequestMgr.h"

#include "../../platform/resmgt/tests/TempFolderTest.h"

#include <OpenImageIO/imageio.h>

#include <array>
#include <cstring>

using namespace Vn;

namespace {

// A file written by the image library, and what it reads back in a type.
struct Sample {
    char const* name;
    OIIO::TypeDesc type;
    int channels;
    int tile; // 0 for scanlines
    ImPixelFormat expected;
    char const* details;
};

std::vector<Sample> const kSamples = {
    {"half.exr", OIIO::TypeDesc::HALF, 4, 0, ImPixelFormat(4, 16),
     "Channels=[R,G,B,A] Depth=[16 float] Tiled=[No] PixelRatio=[1] "
     "Compression=[zip]Format=[openexr]"},
    {"float.exr", OIIO::TypeDesc::FLOAT, 3, 0, ImPixelFormat(3, 32),
     "Channels=[R,G,B] Depth=[32 float] Tiled=[No] PixelRatio=[1] "
     "Compression=[zip]Format=[openexr]"},
    {"tiled.exr", OIIO::TypeDesc::HALF, 4, 16, ImPixelFormat(4, 16),
     "Channels=[R,G,B,A] Depth=[16 float] Tiled=[Yes] PixelRatio=[1] "
     "Compression=[zip]Format=[openexr]"},
    {"deep.png", OIIO::TypeDesc::UINT16, 4, 0, ImPixelFormat(4, 32),
     "Channels=[R,G,B,A] Depth=[16] Tiled=[No] PixelRatio=[Not present] Format=[png]"},
    {"grey.png", OIIO::TypeDesc::UINT8, 2, 0, ImPixelFormat(4, 8),
     "Channels=[Y,A] Depth=[8] Tiled=[No] PixelRatio=[Not present] Format=[png]"},
    {"plain.tif", OIIO::TypeDesc::UINT8, 3, 0, ImPixelFormat(3, 8),
     "Channels=[R,G,B] Depth=[8] Tiled=[No] PixelRatio=[Not present] Compression=[zip]"
     "Format=[tiff]"},
    {"tiled.tif", OIIO::TypeDesc::FLOAT, 1, 16, ImPixelFormat(3, 32),
     "Channels=[Y] Depth=[32 float] Tiled=[Yes] PixelRatio=[Not present] Compression=[zip]"
     "Format=[tiff]"},
    {"film.dpx", OIIO::TypeDesc::UINT16, 3, 0, ImPixelFormat(3, 32),
     "Channels=[R,G,B] Depth=[16] Tiled=[No] PixelRatio=[1] Format=[dpx]"},
    {"photo.jpg", OIIO::TypeDesc::UINT8, 3, 0, ImPixelFormat(3, 8),
     "Channels=[R,G,B] Depth=[8] Tiled=[No] PixelRatio=[Not present] Format=[jpeg]"},
};

constexpr int kWidth = 37;
constexpr int kHeight = 21;

// Every pixel and channel different, alpha below 1 so that premultiplication would show.
void writeSample(Sample const& s, std::string const& path) {
    OIIO::ImageSpec header(kWidth, kHeight, s.channels, s.type);
    if (s.tile)
        header.tile_width = header.tile_height = s.tile;
    if (s.channels == 2 || s.channels == 4)
        header.alpha_channel = s.channels - 1;
    if (s.channels == 1)
        header.channelnames = {"Y"};
    if (s.channels == 2)
        header.channelnames = {"Y", "A"};
    std::vector<float> px(static_cast<std::size_t>(kWidth) * kHeight * s.channels);
    for (std::size_t i = 0; i < px.size(); ++i)
        px[i] = static_cast<float>((i * 7919) % 1000) / 1000.0f;
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out && out->open(path, header)) << OIIO::geterror();
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, px.data()));
    ASSERT_TRUE(out->close());
}

// The file's pixels as the image library reads them in a type, top line first, with grey
// spread over red, green and blue.
std::vector<std::byte> reference(std::string const& path, ImPixelFormat const& pf) {
    auto in = OIIO::ImageInput::create(path);
    OIIO::ImageSpec header;
    EXPECT_TRUE(in && in->open(path, header)) << path;
    OIIO::TypeDesc const type = pf.getDepth() == 8    ? OIIO::TypeDesc::UINT8
                                : pf.getDepth() == 16 ? OIIO::TypeDesc::HALF
                                                      : OIIO::TypeDesc::FLOAT;
    std::size_t const cs = type.size();
    std::vector<std::byte> raw(static_cast<std::size_t>(header.width) * header.height *
                               header.nchannels * cs);
    EXPECT_TRUE(in->read_image(0, 0, 0, header.nchannels, type, raw.data()));
    std::vector<std::byte> out(static_cast<std::size_t>(header.width) * header.height *
                               pf.getPixelSize());
    int const map[4][4] = {{0, 0, 0, -1}, {0, 0, 0, 1}, {0, 1, 2, -1}, {0, 1, 2, 3}};
    for (std::size_t p = 0, n = static_cast<std::size_t>(header.width) * header.height; p < n; ++p)
        for (int c = 0; c < pf.getComps(); ++c)
            std::memcpy(
                &out[(p * pf.getComps() + c) * cs],
                &raw[(p * header.nchannels + map[std::min(header.nchannels, 4) - 1][c]) * cs], cs);
    return out;
}

class ImageFileTest : public VnTest::TempFolderTest {};

// The checksum of the PNG chunk whose type starts at `at` and whose data is `length` bytes, as
// the chunk stores it.
std::string crcOfChunk(std::string const& png, std::size_t at, std::size_t length) {
    std::uint32_t crc = 0xffffffffU;
    for (std::size_t i = at; i < at + 4 + length; ++i) {
        crc ^= static_cast<unsigned char>(png[i]);
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xedb88320U & (0U - (crc & 1U)));
    }
    crc ^= 0xffffffffU;
    return {char(crc >> 24), char(crc >> 16), char(crc >> 8), char(crc)};
}

// A file read whole through the host's reader; raises what it raised.
ImImage readWhole(std::string const& path) {
    OPtr<HoOiioImageFile> const in = HoOiioImageFile::openForReading(path);
    ImFormat const f = in->getFormat();
    ImImage const image = ImImage::create(ImLayout(f.getPixelFormat(), f.getRegion()));
    in->readImage(f.getRegion(), image);
    return image;
}

TEST_F(ImageFileTest, BadFilesGiveOneErrorNamingTheFile) {
    writeSample(kSamples[0], at("good.exr").getString());
    writeSample(kSamples[3], at("good.png").getString());
    std::string const exr = get("good.exr");
    std::string const png = get("good.png");
    put("cut.exr", exr.substr(0, exr.size() * 2 / 3));
    put("cut.png", png.substr(0, png.size() / 2));
    put("head.exr", exr.substr(0, 40));
    put("text.png", "not an image at all");
    put("noend.png", png.substr(0, png.size() - 12));
    put("head.png", png.substr(0, 20));
    put("noise.exr", std::string("\x76\x2f\x31\x01") + std::string(300, '\x7f'));
    // The first attribute's size, just after its name and type, said to be about 2 GB.
    std::string bigAttribute = exr;
    std::size_t const sizeAt = bigAttribute.find('\0', bigAttribute.find('\0', 8) + 1) + 1;
    bigAttribute.replace(sizeAt, 4, std::string("\x00\xff\xff\x7f", 4));
    put("bigattr.exr", bigAttribute);
    // A DPX whose user data, announced at byte 32, would be about 3 GB in either byte order.
    writeSample(kSamples[7], at("good.dpx").getString());
    std::string bigUser = get("good.dpx");
    bigUser.replace(32, 4, std::string(4, '\xc3'));
    put("biguser.dpx", bigUser);
    {
        // A TIFF placed so low that its last row's number would not fit in an int.
        OIIO::ImageSpec far(1, 1000, 3, OIIO::TypeDesc::UINT8);
        far.y = 2147483000;
        std::vector<unsigned char> px(3000, 100);
        auto out = OIIO::ImageOutput::create(at("far.tif").getString());
        ASSERT_TRUE(out->open(at("far.tif").getString(), far) &&
                    out->write_image(OIIO::TypeDesc::UINT8, px.data()) && out->close());
    }
    {
        // A PNG whose header, and nothing else, says 999999 x 999999 pixels: 16 TB as float.
        std::string huge = get("good.png");
        huge.replace(16, 8, std::string("\x00\x0f\x42\x3f\x00\x0f\x42\x3f", 8));
        huge.replace(29, 4, crcOfChunk(huge, 12, 13));
        put("huge.png", huge);
    }
    // Files the reader refuses itself say why.
    struct Bad {
        char const* name;
        char const* why;
    };
    for (Bad const& bad : {Bad{"cut.exr", ""}, Bad{"cut.png", "runs past its end"},
                           Bad{"noend.png", "ends before its last chunk"}, Bad{"head.png", ""},
                           Bad{"head.exr", ""}, Bad{"text.png", ""}, Bad{"noise.exr", ""},
                           Bad{"bigattr.exr", "attribute at byte 8 runs past the file's end"},
                           Bad{"biguser.dpx", "announces data past the file's end"},
                           Bad{"far.tif", "is too far out"},
                           Bad{"huge.png", "MB this process may use"}, Bad{"none.tif", ""}}) {
        SCOPED_TRACE(bad.name);
        std::string const path = at(bad.name).getString();
        try {
            readWhole(path);
            ADD_FAILURE() << "read";
        } catch (ExBase const& e) {
            std::string const why = e.getReason();
            EXPECT_EQ(why.rfind("cannot read \"" + path + "\": ", 0), 0u) << why;
            EXPECT_NE(why.find(bad.why), std::string::npos) << why;
            EXPECT_EQ(why.find('\n'), std::string::npos) << why;
        }
    }
}

ImImage gradient(ImFormat const& f, float level) {
    ImImage const image = ImImage::create(ImLayout(f.getPixelFormat(), f.getRegion()));
    ImWriteGuard const guard(image);
    for (int y = 0; y < f.getHeight(); ++y) {
        auto* row = reinterpret_cast<float*>(guard.getAddress(0, y));
        for (int i = 0; i < f.getWidth() * f.getPixelFormat().getComps(); ++i)
            row[i] = level + static_cast<float>(y * 1000 + i) / 65536.0f;
    }
    return image;
}

// Writes a float RGBA image of 8x6 over `path`; raises what the file raised.
void writeOver(std::string const& path, float level) {
    ImFormat const f(8, 6, ImPixelFormat(4, 32));
    OPtr<HoOiioImageFile> file = HoOiioImageFile::createForWriting(path);
    EXPECT_EQ(file->beginImageWrite(f).x, 8);
    file->writeImage(gradient(f, level));
    file->endImageWrite();
}

TEST_F(ImageFileTest, WritesRoundTripAndAbortKeepsTheOldFile) {
    std::string const path = at("out.exr").getString();
    writeOver(path, 0.5f);
    // Written bottom row first in memory, the file's top line is the image's last row.
    ImFormat const f(8, 6, ImPixelFormat(4, 32));
    ImImage const back = readWhole(path);
    ImImage const sent = gradient(f, 0.5f);
    ImReadGuard const a(back), b(sent);
    for (int y = 0; y < 6; ++y)
        EXPECT_EQ(std::memcmp(a.getAddress(0, y), b.getAddress(0, y), 8 * 16), 0) << y;

    std::string const old = get("out.exr");
    OPtr<HoOiioImageFile> file = HoOiioImageFile::createForWriting(path);
    file->beginImageWrite(f);
    file->writeImage(gradient(f, 0.25f));
    file->abortImageWrite();
    EXPECT_EQ(get("out.exr"), old);
    EXPECT_EQ(names(), std::vector<std::string>{"out.exr"});
    EXPECT_THROW(HoOiioImageFile::createForWriting(at("x.unknown").getString()), ExBase);
}

// The red of the first pixel of a written file; -1 when it is no whole image.
float levelOf(std::string const& path) {
    try {
        return *reinterpret_cast<float const*>(ImReadGuard(readWhole(path)).getAddress(0, 0));
    } catch (ExBase const&) {
        return -1.0f;
    }
}

// A failure at any step of a write, or the process killed there, leaves either the old file or
// the whole new one under the final name, and no temporary after a failure.
TEST_F(ImageFileTest, FaultsAtEachWriteStepLeaveNoPartialFile) {
    // No worker threads of the image library may hold a lock when the children fork.
    OIIO::attribute("threads", 1);
    std::string const path = at("out.tif").getString();
    writeOver(path, 0.5f);
    struct {
        OsFaultInjector::Operation op;
        int nth;
        bool replaced;
    } const faults[] = {
        {OsFaultInjector::OPEN, 1, false},   {OsFaultInjector::WRITE, 1, false},
        {OsFaultInjector::CLOSE, 1, false},  {OsFaultInjector::OPEN, 2, false},
        {OsFaultInjector::FSYNC, 1, false},  {OsFaultInjector::CLOSE, 2, false},
        {OsFaultInjector::RENAME, 1, false}, {OsFaultInjector::FSYNC, 2, true},
    };
    for (auto const& f : faults) {
        SCOPED_TRACE(std::string(OsFaultInjector::getName(f.op)) + " #" + std::to_string(f.nth));
        OsFaultInjector::failNth(f.op, f.nth, EIO);
        EXPECT_THROW(writeOver(path, 0.75f), ExBase);
        OsFaultInjector::disarm();
        EXPECT_EQ(names(), std::vector<std::string>{"out.tif"});
        EXPECT_EQ(levelOf(path), f.replaced ? 0.75f : 0.5f);
        writeOver(path, 0.5f);
    }
    int const steps = [&] {
        OsFaultInjector::arm();
        writeOver(path, 0.75f);
        int const n = OsFaultInjector::getStepCount();
        OsFaultInjector::disarm();
        return n;
    }();
    EXPECT_EQ(steps, 8);
    for (int step = 1; step <= steps; ++step) {
        writeOver(path, 0.5f);
        EXPECT_TRUE(killedAtStep(step, [&] { writeOver(path, 0.75f); })) << step;
        float const now = levelOf(path);
        EXPECT_TRUE(now == 0.5f || now == 0.75f) << "step " << step << ": " << now;
    }
}

// The engine started, and the numbered kind of sequence known.
class ImageFileSourceTest : public ImageFileTest {
protected:
    void SetUp() override {
        ImageFileTest::SetUp();
        InInitMgr::getInstance().initialize();
        HoNumberedSequence::registerKind();
    }
    void TearDown() override {
        InInitMgr::getInstance().finalize();
        ImageFileTest::TearDown();
    }
    std::shared_ptr<PiImageSequence const> sequence(std::string const& description) {
        put("seq.xml", description);
        return std::shared_ptr<PiImageSequence const>(
            PiImageSequence::create(at("seq.xml").getString()).release());
    }
    PxStrongHndl<PxImageProtocol const>
    node(std::shared_ptr<PiImageSequence const> const& s,
         std::size_t cache = HoImageFileNode::kDefaultCacheBytes) {
        PxStrongHndl<HoImageFileNode> h(new HoImageFileNode(PxNode::Init{"file"}, s, cache));
        PxNode::init(PxStrongHndl<PxNode>(h));
        return PxStrongHndl<PxImageProtocol const>(h.get());
    }
    std::string numbered(std::string const& name, int last = 5,
                         std::string const& more = "") const {
        return "<NumberedSequence pattern='" + at(name).getString() + "' first='1' last='" +
               std::to_string(last) + "'" + more + "/>";
    }
    // The node of a sequence of one file.
    PxStrongHndl<PxImageProtocol const> single(std::string const& name) {
        return node(sequence(numbered(name, 1)));
    }
};

// Every format reads exactly what the image library reads, rows turned (the file's top line is
// the image's last row), whole or by a band of rows that cuts tiles; rendered through the engine,
// tile by tile, it gives the same pixels, the top line first as a picture is shown.
TEST_F(ImageFileSourceTest, EveryFormatReadsAndRendersExactly) {
    for (Sample const& s : kSamples) {
        SCOPED_TRACE(s.name);
        std::string const name = std::string("one.#.") + OsFilePath(s.name).getExtension();
        std::string const path = HoImageFile::expandFramePattern(at(name).getString(), 1);
        writeSample(s, path);
        std::vector<std::byte> const ref = reference(path, s.expected);
        OPtr<HoOiioImageFile> file = HoOiioImageFile::openForReading(path);
        ImFormat const format = file->getFormat();
        EXPECT_EQ(std::pair(format.getWidth(), format.getHeight()), std::pair(kWidth, kHeight));
        ASSERT_EQ(format.getPixelFormat(), s.expected);
        EXPECT_EQ(file->isTiled(), s.tile != 0);
        EXPECT_EQ(file->getDetails()->getDetailString(), s.details);
        std::size_t const line = static_cast<std::size_t>(kWidth) * s.expected.getPixelSize();
        for (GeRectangle<int> const band :
             {format.getRegion(), GeRectangle<int>{0, kWidth, 3, 5}}) {
            ImImage const image = ImImage::create(ImLayout(s.expected, band));
            file->readImage(band, image);
            ImReadGuard const guard(image);
            for (int y = band.ymin; y < band.ymax; ++y)
                ASSERT_EQ(std::memcmp(guard.getAddress(0, y), ref.data() + (kHeight - 1 - y) * line,
                                      line),
                          0)
                    << "row " << y << " of band " << band.ymin << "-" << band.ymax;
        }
        HoImage const image = HoRenderer::renderFrame(single(name), 0.0);
        ASSERT_EQ(std::pair(image.width, image.height), std::pair(kWidth, kHeight));
        ASSERT_EQ(image.format.getComps(), s.expected.getComps());
        ASSERT_EQ(static_cast<int>(image.format.getDepth()),
                  static_cast<int>(s.expected.getDepth()));
        EXPECT_TRUE(image.pixels == ref);
    }
}

// Frame i of five, each a flat grey of i / 10, 8x4 float RGBA.
void writeFrame(std::string const& path, int i) {
    OIIO::ImageSpec header(8, 4, 4, OIIO::TypeDesc::FLOAT);
    header.alpha_channel = 3;
    std::vector<float> px(8 * 4 * 4, static_cast<float>(i) / 10.0f);
    for (std::size_t k = 3; k < px.size(); k += 4)
        px[k] = 1.0f;
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out->open(path, header) && out->write_image(OIIO::TypeDesc::FLOAT, px.data()) &&
                out->close());
}

TEST_F(ImageFileSourceTest, SequenceFrameByFrameMissingFramesAndTheCacheBound) {
    for (int i = 1; i <= 5; ++i)
        writeFrame(HoImageFile::expandFramePattern(at("f.####.exr").getString(), i), i);
    auto const seq = sequence(numbered("f.####.exr"));
    ASSERT_EQ(seq->getNbImages(), 5);
    auto const n = node(seq);
    double const rate = n->getImageFormat().getFrameRate().toDouble();
    for (int i = 0; i < 5; ++i) {
        OPtr<PiImageFile> const file = seq->getImageForReading(i);
        EXPECT_EQ(file->getPathText(), at("f.000" + std::to_string(i + 1) + ".exr").getString());
        EXPECT_FLOAT_EQ(HoRenderer::renderFrame(n, i / rate).getColor(3, 2).r, (i + 1) / 10.0f);
    }
    // Past the ends the end frames hold.
    EXPECT_FLOAT_EQ(HoRenderer::renderFrame(n, 9.0 / rate).getColor(0, 0).r, 0.5f);

    std::filesystem::remove(at("f.0003.exr").getString());
    try {
        HoRenderer::renderFrame(node(sequence(numbered("f.####.exr"))), 2 / rate);
        ADD_FAILURE() << "rendered a missing frame";
    } catch (ExBase const& e) {
        EXPECT_NE(e.getReason().find("frame 3 is missing: no file \"" +
                                     at("f.0003.exr").getString() + "\""),
                  std::string::npos)
            << e.getReason();
    }
    auto const held = node(sequence(numbered("f.####.exr", 5, " missing='hold'")));
    EXPECT_FLOAT_EQ(HoRenderer::renderFrame(held, 2 / rate).getColor(0, 0).r, 0.2f);

    // A cache of one frame reads again a frame it let go; a larger one does not.
    for (auto [budget, reads] : {std::pair<std::size_t, long>{1, 3}, {1 << 20, 2}}) {
        auto const cached = node(seq, budget);
        long const before = HoOiioImageFile::getReadCount();
        for (int i : {0, 1, 0})
            HoRenderer::renderFrame(cached, i / rate);
        EXPECT_EQ(HoOiioImageFile::getReadCount() - before, reads) << budget;
        EXPECT_LE(static_cast<HoImageFileNode const&>(*cached).getCachedBytes(),
                  std::max<std::size_t>(budget, 8 * 4 * 16 + 64 * 4));
    }
}

// The rate and pixel ratio a file states make the node's format; the frame widens with the
// ratio. Without them the node takes square pixels and the default rate.
TEST_F(ImageFileSourceTest, FormatRateAndPixelRatioComeFromTheFile) {
    OIIO::ImageSpec header(6, 4, 3, OIIO::TypeDesc::HALF);
    header.attribute("FramesPerSecond", OIIO::TypeRational, std::array<int, 2>{30000, 1001}.data());
    header.attribute("PixelAspectRatio", 2.0f);
    std::vector<float> const px(6 * 4 * 3, 0.5f);
    std::string const path = at("wide.1.exr").getString();
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out->open(path, header) && out->write_image(OIIO::TypeDesc::FLOAT, px.data()) &&
                out->close());
    writeFrame(at("plain.1.exr").getString(), 1);
    struct {
        char const* pattern;
        Rational rate, ratio;
        float width;
    } const cases[] = {{"wide.#.exr", Rational(30000, 1001), Rational(2), 12.0f},
                       {"plain.#.exr", Rational(24), Rational(1), 8.0f}};
    for (auto const& c : cases) {
        auto const n = single(c.pattern);
        PxImageFormat const f = n->getImageFormat();
        EXPECT_EQ(f.getFrameRate(), c.rate) << c.pattern;
        EXPECT_EQ(f.getPixelFormat().getAspectRatio(), c.ratio) << c.pattern;
        EXPECT_EQ(n->getImageROD(PxTimeStreamContext(0.0, 0)).getROD().xmax, c.width);
    }
}

TEST_F(ImageFileSourceTest, A4KFrameOf64TilesIsReadOnce) {
#if defined(__SANITIZE_THREAD__)
    // The image library's own threads move the frame in blocks that ThreadSanitizer, which cannot
    // see their locks, scans byte by byte: minutes for one frame.
    GTEST_SKIP() << "a 4K frame through the image library's threads under ThreadSanitizer";
#endif
    std::string const path = at("big.1.exr").getString();
    OIIO::ImageSpec header(4096, 4096, 3, OIIO::TypeDesc::HALF);
    std::vector<float> row(4096 * 3);
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out->open(path, header));
    for (int y = 0; y < 4096; ++y) {
        std::fill(row.begin(), row.end(), static_cast<float>(y) / 4096.0f);
        ASSERT_TRUE(out->write_scanline(y, 0, OIIO::TypeDesc::FLOAT, row.data()));
    }
    ASSERT_TRUE(out->close());
    auto const n = single("big.#.exr");
    long const before = HoOiioImageFile::getReadCount();
    int tiles = 0;
    HoImage const image = HoRenderer::renderFrame(n, 0.0, [&](int, int total) { tiles = total; });
    EXPECT_EQ(tiles, 64);
    EXPECT_EQ(HoOiioImageFile::getReadCount() - before, 1);
    // The file's top line is the picture's top.
    EXPECT_FLOAT_EQ(image.getColor(5, 0).r, 0.0f);
    EXPECT_NEAR(image.getColor(5, 4095).g, 4095.0f / 4096.0f, 1e-3f);
}

// A coarser scale is the box average of the full frame over blocks of 2^scale pixels, the
// blocks cut by the right and top edges over the pixels they cover; beyond one pixel it stays
// one pixel. The file is read once for every scale.
TEST_F(ImageFileSourceTest, CoarserScalesAreBoxAveragesOfTheFrame) {
    struct {
        int sample; // in kSamples
        int scale;
        float tolerance;
    } const cases[] = {{1, 1, 1e-6f}, {0, 1, 1e-3f}, {4, 1, 0.5f / 255 + 1e-6f}, {1, 6, 1e-6f}};
    for (auto const& c : cases) {
        Sample const& s = kSamples[c.sample];
        SCOPED_TRACE(std::string(s.name) + " at scale " + std::to_string(c.scale));
        std::string const name =
            "p" + std::to_string(c.scale) + ".#." + OsFilePath(s.name).getExtension();
        std::string const path = HoImageFile::expandFramePattern(at(name).getString(), 1);
        writeSample(s, path);
        auto const n = single(name);
        long const before = HoOiioImageFile::getReadCount();
        IxTile tiles[2];
        for (int k : {1, 0}) {
            PxRequestPtr<PxImageMultiTileRequest> r(new PxImageMultiTileRequest(
                PxUPtr<PxImageProtocol const>(n), 0, PxTimeInfo(0.0), k * c.scale));
            PxRequestMgr::getInstance().executeRequest(r.get(), false);
            tiles[k] =
                PxImageMultiTileRequest::assembleTiles(*r->getResults(), r->getPixelRegion());
        }
        EXPECT_EQ(HoOiioImageFile::getReadCount() - before, 1);
        std::vector<std::byte> const raw =
            reference(path, ImPixelFormat(s.expected.getComps(), 32));
        int const comps = s.expected.getComps();
        int const block = 1 << c.scale;
        int const w = (kWidth + block - 1) / block, h = (kHeight + block - 1) / block;
        ASSERT_EQ(tiles[1].getPixelRegion(), GeRectangle<int>(0, w, 0, h));
        IxReadGuard const got(tiles[1]);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                CoRgbaColorTyped<float> p;
                IxConvertUtil::readFrom(&p, got.getAddress(x, y), 1, s.expected);
                float const* pc = &p.r;
                for (int k = 0; k < comps; ++k) {
                    double sum = 0.0;
                    int count = 0;
                    for (int yy = y * block; yy < std::min(kHeight, (y + 1) * block); ++yy)
                        for (int xx = x * block; xx < std::min(kWidth, (x + 1) * block); ++xx) {
                            float v;
                            std::size_t const i =
                                (static_cast<std::size_t>(kHeight - 1 - yy) * kWidth + xx) * comps +
                                k;
                            std::memcpy(&v, &raw[i * 4], 4);
                            sum += v;
                            ++count;
                        }
                    ASSERT_NEAR(pc[k], sum / count, c.tolerance)
                        << x << "," << y << "[" << k << "]";
                }
            }
    }
}

} // namespace
