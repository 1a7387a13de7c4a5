// Starts the engine, builds a small processing graph (a colour frame), renders it through the
// request engine and writes it: vnconsumer <output image>.

#include "HoRender.h"
#include "InPackageInit.h"
#include "PxImageSourceNodes.h"
#include "PxValueNode.h"

#include <cmath>
#include <cstdio>
#include <exception>

using namespace Vn;

namespace {

template <class N>
PxStrongHndl<N> make(N* n) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return h;
}

template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const> constant(T v) {
    return make(new PxAnimValueNode<T>(PxNode::Init{"constant"}, PxResult<T>(v)));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: vnconsumer <output image>\n");
        return 2;
    }
    try {
        InInitMgr::getInstance().initialize();
        int status = 0;
        {
            PxImageFormat const format(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                                       Rational(25));
            auto frameFormat = make(new PxImageFormatNode(PxNode::Init{"format"}, format));
            CoRgbColorTyped<float> const orange{1.0f, 0.5f, 0.25f};
            auto frame =
                make(new PxColorSourceNode(PxNode::Init{"frame"}, frameFormat, constant(320),
                                           constant(180), constant(CoRgbColorTyped<float>{0, 0, 0}),
                                           constant(0.0), constant(orange), constant(1.0)));
            HoImage image = HoRenderer::renderFrame(frame, 0.0);
            CoRgbaColorTyped<float> const c = image.getColor(160, 90);
            if (image.width != 320 || image.height != 180 || std::fabs(c.r - 1.0f) > 1e-6f ||
                std::fabs(c.g - 0.5f) > 1e-6f || std::fabs(c.b - 0.25f) > 1e-6f) {
                std::fprintf(stderr, "vnconsumer: the frame is not the colour asked\n");
                status = 1;
            } else {
                HoImageFile::write(image, argv[1]);
                std::printf("vnconsumer: wrote %s (%dx%d)\n", argv[1], image.width, image.height);
            }
        }
        InInitMgr::getInstance().finalize();
        return status;
    } catch (std::exception const& e) {
        std::fprintf(stderr, "vnconsumer: %s\n", e.what());
        return 1;
    }
}
