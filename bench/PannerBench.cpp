// The panner on a 4K RGBA float frame, one worker: a whole-pixel pan against a plain copy of the
// same tiles through the same engine road, and filtered pans (bilinear, Mitchell, EWA Gaussian)
// in megapixels per second against OpenCV's warpAffine and OpenImageIO's warp with the matching
// filter, one thread each. All stop at pixels in memory.

#include "BenchImages.h"
#include "BenchRatio.h"

#include "HoRender.h"
#include "ImageProtocolServices.h"
#include "InPackageInit.h"
#include "IxImageOps.h"
#include "PxImageSourceNodes.h"
#include "PxPannerNode.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"

#include <Imath/ImathMatrix.h>
#include <OpenImageIO/imagebufalgo.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <map>
#include <random>

using namespace Vn;
using namespace VnBench;

namespace {

constexpr double kDx = 37.3;
constexpr double kDy = -21.6;

// Each tile a fresh copy of the child's (which the caller keeps alive): the road of the engine with
// ipCopy as all the work.
class CopyNode final : public PxImageNode {
public:
    CopyNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& child)
        : PxNode(init), PxImageNode(init, PxNodePtr<PxImageProtocol const>(child)), _child(child) {}
    PxImageResult getImageResult(PxImageContext const& c) const override {
        PxImageResult const src = _child->getImageResult(c);
        IxTile const t = allocateImageBuffer(c, {}, src.getPixelRegion());
        ipCopy(IxWriteGuard(t), src.getTileGuard(), src.getPixelRegion(), 0, 0);
        return PxImageResult(t, src.getValidityInterval());
    }

protected:
    void init() override {
        PxNode::init();
        registerChild(PxNodePtr<PxNode const>(_child));
    }

private:
    PxNodePtr<PxImageProtocol const> _child;
};

void render(benchmark::State& st, PxStrongHndl<PxImageProtocol const> const& node) {
    PxRequestMgr::getInstance().setMaxRunningWorkers(1);
    for (auto _ : st) {
        HoImage const image = HoRenderer::renderFrame(node, 0.0);
        benchmark::DoNotOptimize(image.pixels.data());
    }
    st.SetItemsProcessed(st.iterations() * kW * kH);
}

void ours(benchmark::State& st, int filter, double dx, double dy) {
    render(st, made(new PxPannerNode(PxNode::Init{"pan"}, source(), value(dx), value(dy),
                                     value(0.0), value(0.0), value(filter), value(1.0))));
}

void copyTiles(benchmark::State& st) {
    render(st, made(new CopyNode(PxNode::Init{"copy"}, source())));
}

void openCV(benchmark::State& st, int interpolation) {
    cv::setNumThreads(1);
    cv::Mat const src(kH, kW, CV_32FC4, plainSource().data());
    cv::Mat const m = (cv::Mat_<double>(2, 3) << 1, 0, kDx, 0, 1, -kDy);
    cv::Mat dst;
    for (auto _ : st) {
        cv::warpAffine(src, dst, m, src.size(), interpolation, cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(dst.data);
    }
    st.SetItemsProcessed(st.iterations() * kW * kH);
}

void oiio(benchmark::State& st, char const* filter) {
    OIIO::ImageSpec const layout(kW, kH, 4, OIIO::TypeDesc::FLOAT);
    OIIO::ImageBuf const src(layout, plainSource().data());
    Imath::M33f const m(1, 0, 0, 0, 1, 0, float(kDx), float(-kDy), 1);
    for (auto _ : st) {
        OIIO::ImageBuf const out =
            OIIO::ImageBufAlgo::warp(src, m, filter, 0.0f, false, OIIO::ImageBuf::WrapBlack, {}, 1);
        benchmark::DoNotOptimize(out.localpixels());
    }
    st.SetItemsProcessed(st.iterations() * kW * kH);
}

} // namespace

int main(int argc, char** argv) {
    InInitMgr::getInstance().initialize();
    auto reg = [](char const* name, auto fn) {
        benchmark::RegisterBenchmark(name, fn)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    reg("Pan_WholePixels", [](benchmark::State& s) { ours(s, 0, 37.0, -21.0); });
    reg("Copy_SameTiles", copyTiles);
    reg("Pan_Bilinear", [](benchmark::State& s) { ours(s, 1, kDx, kDy); });
    reg("OpenCV_warpAffine_Linear", [](benchmark::State& s) { openCV(s, cv::INTER_LINEAR); });
    reg("OIIO_warp_Triangle", [](benchmark::State& s) { oiio(s, "triangle"); });
    reg("Pan_Mitchell", [](benchmark::State& s) { ours(s, 3, kDx, kDy); });
    reg("OpenCV_warpAffine_Cubic", [](benchmark::State& s) { openCV(s, cv::INTER_CUBIC); });
    reg("OIIO_warp_Mitchell", [](benchmark::State& s) { oiio(s, "mitchell"); });
    reg("Pan_EWAGauss", [](benchmark::State& s) { ours(s, 4, kDx, kDy); });
    reg("OIIO_warp_Gaussian", [](benchmark::State& s) { oiio(s, "gaussian"); });
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"whole-pixel pan / copy of the same tiles", "Pan_WholePixels", "Copy_SameTiles"},
         {"bilinear pan / OpenCV warpAffine linear", "Pan_Bilinear", "OpenCV_warpAffine_Linear"},
         {"bilinear pan / OIIO warp triangle", "Pan_Bilinear", "OIIO_warp_Triangle"},
         {"Mitchell pan / OpenCV warpAffine cubic", "Pan_Mitchell", "OpenCV_warpAffine_Cubic"},
         {"Mitchell pan / OIIO warp mitchell", "Pan_Mitchell", "OIIO_warp_Mitchell"},
         {"EWA Gaussian pan / OIIO warp gaussian", "Pan_EWAGauss", "OIIO_warp_Gaussian"}});
    InInitMgr::getInstance().finalize();
    return rc;
}
