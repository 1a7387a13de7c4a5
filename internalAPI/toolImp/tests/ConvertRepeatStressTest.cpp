#include "../../procImp/tests/ImageTestGraph.h"

#include "IxConvertUtil.h"
#include "PiImageConvertNode.h"
#include "PiImageRepeatNode.h"

#include <atomic>
#include <thread>

using namespace VnTest;
using namespace Vn;

namespace {

class ConvertRepeatStress : public EngineTest {};

// Tiles are asked from several threads while the target format and the repeat mode change:
// every tile comes whole, in one of the target formats, with the source's colour.
TEST_F(ConvertRepeatStress, TilesStayWholeWhileFormatsAndModesChange) {
    ColorSourceDesc frame;
    frame.width = 700;
    frame.height = 20;
    PxStrongHndl<PxImageProtocol const> const source = colorSource(frame);
    auto const mode = makeNode(new PxAnimValueNode<int>({"mode"}, TmTypes::LOOP));
    auto const repeat =
        makeNode(new PiImageRepeatNode({"repeat"}, source, animValue(0), animValue(4),
                                       PxStrongHndl<PxNode const>(mode), animValue(false)));
    std::vector<PxImageFormat> const targets = {
        imageFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8),
        imageFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT16),
        imageFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32, Rational(2)),
        imageFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32, Rational(1, 2))};
    auto const target = makeNode(new PxImageFormatNode({"target"}, targets[0]));
    auto const input = makeNode(new PiImageInputConvertNode(
        {"input"}, repeat, PxNodePtr<PxImageFormatProtocol const>(target)));

    std::atomic<bool> stop{false};
    std::atomic<int> bad{0};
    std::atomic<int> tiles{0};
    std::vector<std::thread> askers;
    for (int k = 0; k < 3; ++k)
        askers.emplace_back([&, k] {
            for (int i = 0; !stop.load() || i < 50; ++i) {
                PxImageResult const r =
                    tileOf(input, PxImageContext(0.04 * (i % 13) - 0.2, {(i + k) % 3, 0}, 0, 0));
                IxTile const& t = r.getTile();
                bool const known = std::any_of(targets.begin(), targets.end(), [&](auto const& f) {
                    return f.getPixelFormat() == t.getPixelFormat();
                });
                if (!known)
                    ++bad;
                GeRectangle<int> const& p = t.getPixelRegion();
                if (!p.isEmpty()) {
                    CoRgbaColorTyped<float> c;
                    IxReadGuard const g(t);
                    IpPixels const px = ipPixelsOf(g);
                    IxConvertUtil::readFrom(&c, px.address(p.xmin + p.width() / 2, p.ymin), 1,
                                            px.format);
                    if (std::fabs(c.g - 0.5f) > 0.01f)
                        ++bad;
                }
                ++tiles;
            }
        });
    for (int i = 0; i < 40; ++i) {
        PxMutationRequest::submit(new PxImageFormatSetRequest(
            PxUPtr<PxImageFormatNode>(target), targets[static_cast<std::size_t>(i) % 4]));
        PxMutationRequest::submit(new PxAnimValueSetRequest<int>(PxUPtr<PxAnimValueNode<int>>(mode),
                                                                 PxResult<int>(i % 4)));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    stop = true;
    for (auto& t : askers)
        t.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_GE(tiles.load(), 150);
}

} // namespace
