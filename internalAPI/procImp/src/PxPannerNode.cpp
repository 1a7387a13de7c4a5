#include "PxPannerNode.h"

#include "Assertions.h"
#include "GeAffineMatrix.h"
#include "IxImageOps.h"
#include "IxScanline.h"
#include "IxWriteGuardProxy.h"
#include "PxEx.h"
#include "PxImageRequests.h"
#include "PxImageTexture.h"
#include "PxRequestMgr.h"
#include "PxStreams.h"

#include <cfloat>
#include <cmath>
#include <string>

namespace Vn {

namespace {

template <class T>
T read(PxNodePtr<PxAnimValueProtocol<T> const> const& in, double time, PxValidityInterval& vi) {
    PxResult<T> const r = in->getValue(PxTimeContext(time));
    r.reduceVI(vi);
    return r.getValue();
}

PxImageResult transparent(PxImageProtocol const& node, PxValidityInterval const& vi) {
    return PxImageResult(node.allocateEmptyImageBuffer({0, 0, 0, 0}), vi);
}

} // namespace

PxPannerNode::PxPannerNode(PxNode::Init const& init,
                           PxStrongHndl<PxImageProtocol const> const& image, DoubleInput const& x,
                           DoubleInput const& y, DoubleInput const& x2, DoubleInput const& y2,
                           IntInput const& filter, DoubleInput const& blur)
    : PxNode(init), PxImageNode(init, PxNodePtr<PxImageProtocol const>(image)), _image(image),
      _x(x), _y(y), _x2(x2), _y2(y2), _filter(filter), _blur(blur) {
    VN_ASSERT(!_x.isNull() && !_y.isNull() && !_x2.isNull() && !_y2.isNull());
    VN_ASSERT(!_filter.isNull() && !_blur.isNull());
}

PxPannerNode::~PxPannerNode() = default;

void PxPannerNode::init() {
    PxNode::init();
    registerChild(PxNodePtr<PxNode const>(_image));
    for (auto const* in : {&_x, &_y, &_x2, &_y2, &_blur})
        registerChild(PxNodePtr<PxNode const>(*in));
    registerChild(PxNodePtr<PxNode const>(_filter));
}

PxPannerNode::Pan PxPannerNode::readPan(double time, PxValidityInterval& vi) const {
    float const x = static_cast<float>(read(_x, time, vi));
    float const y = static_cast<float>(read(_y, time, vi));
    float const x2 = static_cast<float>(read(_x2, time, vi));
    float const y2 = static_cast<float>(read(_y2, time, vi));
    Pan const pan{x + x2, y + y2};
    if (!std::isfinite(pan.dx) || !std::isfinite(pan.dy))
        throw PxEx::ExInvalidParameter(
            __FILE__, __LINE__,
            "The pan at time " + std::to_string(time) + " is not a finite number of pixels (" +
                std::to_string(pan.dx) + ", " + std::to_string(pan.dy) + ").");
    double const limit = PxImageProtocol::kMaxPixelCoordinate;
    if (std::fabs(pan.dx) >= limit || std::fabs(pan.dy) >= limit)
        throw PxEx::ExInvalidParameter(
            __FILE__, __LINE__,
            "The pan at time " + std::to_string(time) + " of (" + std::to_string(pan.dx) + ", " +
                std::to_string(pan.dy) + ") pixels is beyond the " +
                std::to_string(PxImageProtocol::kMaxPixelCoordinate) + " an image may span");
    return pan;
}

PxRODResult PxPannerNode::getImageROD(PxTimeStreamContext const& context) const {
    PxRODResult rod = _image->getImageROD(context);
    PxValidityInterval vi = rod.getValidityInterval();
    Pan const pan = readPan(context.getTime(), vi);
    GeRectangle<float> r = rod.getROD();
    r.xmin += pan.dx;
    r.xmax += pan.dx;
    r.ymin += pan.dy;
    r.ymax += pan.dy;
    return PxRODResult(r, vi);
}

PxImageResult PxPannerNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    PxRODResult const own = getImageROD(context.getTimeStreamContext());
    own.reduceVI(vi);
    Pan const pan = readPan(context.getTime(), vi);
    if (std::fabs(pan.dx) <= FLT_EPSILON && std::fabs(pan.dy) <= FLT_EPSILON) {
        PxImageResult const child = _image->getImageResult(context);
        child.reduceVI(vi);
        return PxImageResult(child.getTile(), vi);
    }
    if (context.isOutside())
        return transparent(*this, vi);
    float const a = getImageFormat().getAspectRatio();
    float const s = 1.0f / static_cast<float>(1 << context.getScale());
    GePoint2<int> const& t = context.getTile();
    GeRectangle<int> const region = convertTilesToPixels({t.x, t.x + 1, t.y, t.y + 1})
                                        .intersect(nominalToPixelized(own.getROD(), a, s));
    if (region.isEmpty())
        return transparent(*this, vi);

    PxRODResult const child = _image->getImageROD(context.getTimeStreamContext());
    child.reduceVI(vi);
    int const filter = read(_filter, context.getTime(), vi);
    IxTile const tile = allocateImageBuffer(context, {0, 0, 0, 0}, region);

    if (filter != 0) {
        resample(context, tile, region, child.getROD(), pan, filter, vi);
        return PxImageResult(tile, vi);
    }

    // Whole pixels: copies of the source tiles' parts, moved.
    float const fx = pan.dx * s / a;
    float const fy = pan.dy * s;
    float const limit = static_cast<float>(kMaxPixelCoordinate);
    if (!(std::fabs(fx) < limit && std::fabs(fy) < limit)) // a narrow pixel aspect widens a pan
        throw PxEx::ExInvalidParameter(
            __FILE__, __LINE__,
            "A pan of (" + std::to_string(fx) + ", " + std::to_string(fy) +
                ") pixels at this scale is beyond the " + std::to_string(kMaxPixelCoordinate) +
                " an image may span");
    int const ox = static_cast<int>(fx);
    int const oy = static_cast<int>(fy);
    GeRectangle<int> const source = region.translated(-ox, -oy);
    PxRequestPtr<PxImageMultiTileRequest> request(new PxImageMultiTileRequest(
        PxUPtr<PxImageProtocol const>(_image), source, context.getStream(),
        PxTimeInfo(context.getTime()), context.getScale()));
    PxRequestMgr::getInstance().executeRequest(request.get(), false);
    RCShdPtr<PxImageResults> const tiles = request->getResults();
    if (tiles->empty())
        return transparent(*this, vi);
    VN_ASSERT(tiles->size() <= 4);
    IxWriteGuard const out(tile);
    long long covered = 0;
    for (PxImageResult const& r : *tiles) {
        r.reduceVI(vi);
        GeRectangle<int> const part = r.getPixelRegion().intersect(source);
        covered += static_cast<long long>(part.width()) * part.height();
    }
    if (covered < static_cast<long long>(region.width()) * region.height())
        ipSet(out, region, {0, 0, 0, 0});
    for (PxImageResult const& r : *tiles) {
        GeRectangle<int> const part = r.getPixelRegion().intersect(source);
        if (!part.isEmpty())
            ipCopy(out, r.getTileGuard(), part, ox, oy);
    }
    return PxImageResult(tile, vi);
}

void PxPannerNode::resample(PxImageContext const& context, IxTile const& tile,
                            GeRectangle<int> const& region, GeRectangle<float> const& childROD,
                            Pan pan, int filter, PxValidityInterval& vi) const {
    float const blur = static_cast<float>(read(_blur, context.getTime(), vi));
    double const a = getImageFormat().getAspectRatio();
    double const w = childROD.xmax - childROD.xmin;
    double const h = childROD.ymax - childROD.ymin;
    double const cx = 0.5 * (childROD.xmin + childROD.xmax);
    double const cy = 0.5 * (childROD.ymin + childROD.ymax);
    double const up = static_cast<double>(1 << context.getScale());
    // Pixels to nominal coordinates, moved back by the pan and the centre, onto 0 to 1.
    GeAffineMatrix2<double> m = GeTranslation2<double>{0.5, 0.5} * GeAffineMatrix2<double>();
    GeScale2<double>{1.0 / (w / h), 1.0}.mulOnRightAssign(m);
    GeScale2<double>{1.0 / h, 1.0 / h}.mulOnRightAssign(m);
    GeTranslation2<double>{-pan.dx, -pan.dy}.mulOnRightAssign(m);
    GeTranslation2<double>{-cx, -cy}.mulOnRightAssign(m);
    GeScale2<double>{a * up, up}.mulOnRightAssign(m);

    SdTextureParams params;
    params.filter = filter;
    params.blur = blur;
    params.minBlur = blur;
    float const matrix[9] = {float(m(0, 0)), float(m(1, 0)), 0.0f,
                             float(m(0, 1)), float(m(1, 1)), 0.0f,
                             float(m(0, 2)), float(m(1, 2)), 1.0f};
    std::copy(matrix, matrix + 9, params.matrix);
    RCShdPtr<PxImageTexture const> const texture(
        new PxImageTexture(PxNodePtr<PxImageProtocol const>(_image),
                           PxTimeScaleContext(context.getTime(), context.getScale()), params));
    OPtr<SdTextureSampler const> const sampler = texture->getSampler();
    if (!sampler)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "The pan's filter " + std::to_string(filter) +
                                           " names no texture filter: 0 to 6 do.");

    int const bw = sampler->getCacheBlockingSizeX();
    int const bh = sampler->getCacheBlockingSizeY();
    using Color = CoRgbaColorTyped<float>;
    IxPaddingPolicy<Color> const padding(IxPaddingPolicy<Color>::NOOP, Color{0, 0, 0, 1});
    IxScanline<Color> row(0, bw, padding);
    IxWriteGuardProxy out;
    sampler->registerGuardProxy(out);
    GeLinearMatrix2<float> const identity;
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    for (int y0 = region.ymin; y0 < region.ymax; y0 += bh)
        for (int x0 = region.xmin; x0 < region.xmax; x0 += bw) {
            mgr.checkCancelled();
            int const x1 = std::min(x0 + bw, region.xmax);
            int const y1 = std::min(y0 + bh, region.ymax);
            row.rebuild(x0, x1);
            if (!out.isSet())
                out.set(tile);
            for (int y = y0; y < y1; ++y) {
                sampler->sampleRow(GePoint<double>{x0 + 0.5, y + 0.5}, GeVector2<double>{1.0, 0.0},
                                   x1 - x0, identity, &row[x0]);
                row.writeTo(*out, y);
            }
        }
    sampler->reduceVI(vi);
}

} // namespace Vn
