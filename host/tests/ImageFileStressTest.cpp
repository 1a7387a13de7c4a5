// Threads render random tiles of random frames and scales of a small sequence through the
// engine, with a file source whose cache holds little more than one frame: frames are evicted
// and read again while other threads serve tiles of them. Every pixel is checked against what
// was written.
#include "HoImageFiles.h"
#include "HoRender.h"
#include "InPackageInit.h"
#include "PxImageRequests.h"
#include "PxRequestMgr.h"

#include "../../platform/resmgt/tests/TempFolderTest.h"

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

using namespace Vn;

// The image library synchronizes its own threads in code the thread sanitizer does not see.
extern "C" char const* __tsan_default_suppressions() {
    return "race:libOpenImageIO_Util.so\nrace:libOpenImageIO.so\n";
}

namespace {

// Frames of three tiles at full resolution, two at half, one beyond; the last ones cut. Low, to
// keep the checks quick under the thread sanitizer.
constexpr int kW = 1100;
constexpr int kH = 40;
constexpr int kFrames = 6;

int valueAt(int frame, int x, int y, int c) {
    return (x * 7 + y * 13 + frame * 61 + c * 101) % 251;
}

void writeFrame(std::string const& path, int frame) {
    ImFormat const f(kW, kH, ImPixelFormat(3, 8));
    ImImage const image = ImImage::create(ImLayout(f.getPixelFormat(), f.getRegion()));
    {
        ImWriteGuard const guard(image);
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                for (int c = 0; c < 3; ++c)
                    guard.getAddress(x, y)[c] = static_cast<std::byte>(valueAt(frame, x, y, c));
    }
    OPtr<HoOiioImageFile> const file = HoOiioImageFile::createForWriting(path);
    file->beginImageWrite(f);
    file->writeImage(image);
    file->endImageWrite();
}

// The mean of the block of 2^scale pixels a proxy pixel stands for, over the pixels it covers.
double expectedAt(int frame, int scale, int x, int y, int c) {
    int const n = 1 << scale;
    double sum = 0.0;
    int count = 0;
    for (int yy = y * n; yy < std::min(kH, (y + 1) * n); ++yy)
        for (int xx = x * n; xx < std::min(kW, (x + 1) * n); ++xx, ++count)
            sum += valueAt(frame, xx, yy, c);
    return sum / count;
}

// The first wrong pixel of a result, or "".
std::string check(PxImageResult const& result, int frame, int scale) {
    IxReadGuard const guard = result.getTileGuard();
    GeRectangle<int> const& r = result.getPixelRegion();
    for (int y = r.ymin; y < r.ymax; ++y)
        for (int x = r.xmin; x < r.xmax; ++x)
            for (int c = 0; c < 3; ++c) {
                int const got = static_cast<int>(guard.getAddress(x, y)[c]);
                if (std::fabs(got - expectedAt(frame, scale, x, y, c)) > 0.5 + 1e-9)
                    return "frame " + std::to_string(frame) + " scale " + std::to_string(scale) +
                           " pixel " + std::to_string(x) + "," + std::to_string(y) + "[" +
                           std::to_string(c) + "] is " + std::to_string(got);
            }
    return "";
}

class ImageFileStress : public VnTest::TempFolderTest {};

TEST_F(ImageFileStress, RandomTilesOfEvictedFramesAreExact) {
    InInitMgr::getInstance().initialize();
    HoNumberedSequence::registerKind();
    {
        std::string const pattern = at("s.####.tif").getString();
        for (int f = 1; f <= kFrames; ++f)
            writeFrame(HoImageFile::expandFramePattern(pattern, f), f - 1);
        std::shared_ptr<PiImageSequence const> const sequence(
            PiImageSequence::createFromText("<NumberedSequence pattern='" + pattern +
                                                "' first='1' last='" + std::to_string(kFrames) +
                                                "'/>",
                                            "stress")
                .release());
        std::size_t const frameBytes =
            ImLayout(ImPixelFormat(3, 8), {0, kW, 0, kH}).getBufferSize();
        PxStrongHndl<HoImageFileNode> fileNode(
            new HoImageFileNode(PxNode::Init{"file"}, sequence, frameBytes * 3 / 2));
        PxNode::init(PxStrongHndl<PxNode>(fileNode));
        PxUPtr<PxImageProtocol const> const node{
            PxStrongHndl<PxImageProtocol const>(fileNode.get())};
        double const rate = fileNode->getImageFormat().getFrameRate().toDouble();
        long const readsBefore = HoOiioImageFile::getReadCount();

        constexpr int kThreads = 4;
        constexpr int kRequests = 150;
        std::atomic<int> failures{0};
        std::string firstFailure;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                std::mt19937 random(static_cast<unsigned>(t) * 7919u + 1u);
                for (int i = 0; i < kRequests; ++i) {
                    // Mostly two hot frames, served from the cache while others evict.
                    int const frame = static_cast<int>(random() % (random() % 4 ? 2 : kFrames));
                    int const scale = static_cast<int>(random() % 3);
                    // A tile alone, or all of them at once.
                    int const tx = static_cast<int>(random() % static_cast<unsigned>(4 - scale));
                    PxRequestPtr<PxImageMultiTileRequest> request(
                        tx < 3 - scale
                            ? new PxImageMultiTileRequest(node, GeVector2<int>{tx, 0}, 0,
                                                          PxTimeInfo(frame / rate), scale)
                            : new PxImageMultiTileRequest(node, 0, PxTimeInfo(frame / rate),
                                                          scale));
                    PxRequestMgr::getInstance().executeRequest(request.get(), false);
                    try {
                        for (PxImageResult const& result : *request->getResults())
                            if (std::string const why = check(result, frame, scale);
                                !why.empty() && failures++ == 0)
                                firstFailure = why;
                    } catch (ExBase const& e) {
                        if (failures++ == 0)
                            firstFailure = e.getReason();
                    }
                }
            });
        for (std::thread& t : threads)
            t.join();
        EXPECT_EQ(failures.load(), 0) << firstFailure;
        // The bound forced frames out and back in.
        EXPECT_GT(HoOiioImageFile::getReadCount() - readsBefore, kFrames);
        EXPECT_LE(fileNode->getCachedBytes(), frameBytes * 3 / 2 + frameBytes * kThreads);
    }
    InInitMgr::getInstance().finalize();
}

} // namespace
