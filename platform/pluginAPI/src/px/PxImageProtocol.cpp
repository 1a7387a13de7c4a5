#include "PxImageProtocol.h"
#include "Assertions.h"
#include "PxConfig.h"
#include "PxEx.h"
#include "PxStreams.h"

#include <atomic>
#include <cmath>
#include <string>

namespace Vn {

PxImageFormat const PxImageFormat::INVALID_FORMAT;

// ---- context ----

PxImageContext::PxImageContext(double time, GePoint2<int> const& tile, int scale, int stream)
    : _time(time), _stream(stream), _scale(scale), _tile(tile) {
    PxStreams::validateStream(stream);
    VN_ASSERT(isOutside() || (scale >= 0 && scale < 31));
}

PxImageContext PxImageContext::outside(double time, int stream) {
    int const t = PxConfig::getOutsideTile();
    return PxImageContext(time, {t, t}, PxConfig::getOutsideScale(), stream);
}

bool PxImageContext::isOutside() const noexcept {
    int const t = PxConfig::getOutsideTile();
    return _tile.x == t && _tile.y == t;
}

float PxImageContext::getScaleFactor() const noexcept {
    return isOutside() ? 1.0f : 1.0f / static_cast<float>(1 << _scale);
}

// ---- protocol ----

PxResult<CoRgbaColorTyped<float>>
PxImageProtocol::getImageFillColor(PxImageContext const& context) const {
    PxImageResult const r = getImageResult(context);
    return {r.getFillColor(), r.getValidityInterval()};
}

namespace {

// A pixel coordinate from a double, or a clear failure for one no image can have.
int pixelCoordinate(double v, char const* what) {
    double const limit = PxImageProtocol::kMaxPixelCoordinate;
    if (!(v >= -limit && v <= limit)) // NaN fails both
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       std::string(what) + " reaches pixel " + std::to_string(v) +
                                           ", beyond the " +
                                           std::to_string(PxImageProtocol::kMaxPixelCoordinate) +
                                           " pixels an image may span from its origin");
    return static_cast<int>(v);
}

} // namespace

GeRectangle<int> PxImageProtocol::nominalToPixelized(GeRectangle<float> const& rect, float aspect,
                                                     float scaleFactor) {
    if (std::isnan(rect.xmin) || std::isnan(rect.xmax) || std::isnan(rect.ymin) ||
        std::isnan(rect.ymax))
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "A region of definition has a side that is not a number");
    if (rect.isEmpty())
        return {};
    float const sx = scaleFactor / aspect;
    char const* const what = "A region of definition";
    return {pixelCoordinate(std::floor(rect.xmin * sx), what),
            pixelCoordinate(std::ceil(rect.xmax * sx), what),
            pixelCoordinate(std::floor(rect.ymin * scaleFactor), what),
            pixelCoordinate(std::ceil(rect.ymax * scaleFactor), what)};
}

GeRectangle<float> PxImageProtocol::pixelizedToNominal(GeRectangle<int> const& rect, float aspect,
                                                       float scaleFactor) {
    if (rect.isEmpty())
        return {};
    float const sx = aspect / scaleFactor;
    float const sy = 1.0f / scaleFactor;
    return {static_cast<float>(rect.xmin) * sx, static_cast<float>(rect.xmax) * sx,
            static_cast<float>(rect.ymin) * sy, static_cast<float>(rect.ymax) * sy};
}

GeRectangle<int> PxImageProtocol::convertTilesToPixels(GeRectangle<int> const& tiles) {
    if (tiles.isEmpty())
        return {};
    double const w = PxConfig::getTileSizeX();
    double const h = PxConfig::getTileSizeY();
    char const* const what = "A rectangle of tiles";
    return {pixelCoordinate(tiles.xmin * w, what), pixelCoordinate(tiles.xmax * w, what),
            pixelCoordinate(tiles.ymin * h, what), pixelCoordinate(tiles.ymax * h, what)};
}

GeRectangle<int> PxImageProtocol::convertPixelsToTiles(GeRectangle<int> const& pixels) {
    if (pixels.isEmpty())
        return {};
    int const ex = PxConfig::getTileSizeExpX();
    int const ey = PxConfig::getTileSizeExpY();
    // Arithmetic shifts round towards minus infinity, which is what negative pixels need.
    return {pixels.xmin >> ex, ((pixels.xmax - 1) >> ex) + 1, pixels.ymin >> ey,
            ((pixels.ymax - 1) >> ey) + 1};
}

GeRectangle<float> PxImageProtocol::createCenteredNominalROD(int width, int height, float aspect) {
    float const w = static_cast<float>(width) * aspect;
    float const h = static_cast<float>(height);
    return {-0.5f * w, 0.5f * w, -0.5f * h, 0.5f * h};
}

GeRectangle<int> PxImageProtocol::computeTileRegion(PxImageContext const& context,
                                                    PxValidityInterval& vi) const {
    PxRODResult const rod = getImageROD(context.getTimeStreamContext());
    rod.reduceVI(vi);
    if (context.isOutside())
        return {};
    GeRectangle<int> const pixels = nominalToPixelized(
        rod.getROD(), getImageFormat().getAspectRatio(), context.getScaleFactor());
    GePoint2<int> const& t = context.getTile();
    return pixels.intersect(convertTilesToPixels({t.x, t.x + 1, t.y, t.y + 1}));
}

IxTile PxImageProtocol::allocateImageBuffer(PxImageContext const& context,
                                            CoRgbaColorTyped<float> const& fill,
                                            GeRectangle<int> const& region) const {
    return PxImageProtocolServices::getInstance().allocateTile(
        context, getImageFormat().getPixelFormat(), fill, region);
}

IxTile PxImageProtocol::allocateEmptyImageBuffer() const {
    return allocateEmptyImageBuffer({});
}

IxTile PxImageProtocol::allocateEmptyImageBuffer(CoRgbaColorTyped<float> const& fill) const {
    return IxTile(getImageFormat().getPixelFormat(), {}, fill);
}

Vector<PxImageResult> PxImageProtocol::getImageTilesInRegion(
    PxImageContext const& context, PxNodePtr<PxImageProtocol const> const& child,
    PxValidityInterval& vi, GeRectangle<int> const& region, CoRgbaColorTyped<float>& fill) {
    PxRODResult const rod = child->getImageROD(context.getTimeStreamContext());
    rod.reduceVI(vi);
    GeRectangle<int> const pixels =
        nominalToPixelized(rod.getROD(), child->getImageFormat().getAspectRatio(),
                           context.getScaleFactor())
            .intersect(region);
    Vector<PxImageResult> results;
    GeRectangle<int> const tiles = convertPixelsToTiles(pixels);
    for (int j = tiles.ymin; j < tiles.ymax; ++j)
        for (int i = tiles.xmin; i < tiles.xmax; ++i) {
            results.push_back(child->getImageResult(PxImageContext(
                context.getTime(), {i, j}, context.getScale(), context.getStream())));
            results.back().reduceVI(vi);
        }
    if (results.empty()) {
        PxResult<CoRgbaColorTyped<float>> const f = child->getImageFillColor(
            PxImageContext::outside(context.getTime(), context.getStream()));
        vi &= f.getValidityInterval();
        fill = f.getValue();
    } else {
        fill = results.front().getFillColor();
    }
    return results;
}

Vector<IxReadGuard> PxImageProtocol::getGuards(Vector<PxImageResult> const& results) {
    Vector<IxReadGuard> guards;
    guards.reserve(results.size());
    for (auto const& r : results)
        guards.emplace_back(r.getTile());
    return guards;
}

GeRectangle<int> PxImageProtocol::computePixelRegion(Vector<PxImageResult> const& results) {
    GeRectangle<int> u;
    for (auto const& r : results)
        u = u.unite(r.getPixelRegion());
    return u;
}

// ---- services ----

namespace {
std::atomic<PxImageProtocolServices*> s_services{nullptr};
} // namespace

PxImageProtocolServices::~PxImageProtocolServices() = default;

void PxImageProtocolServices::initialize(OPtr<PxImageProtocolServices> services) {
    VN_ASSERT(services.get() != nullptr);
    PxImageProtocolServices* expected = nullptr;
    bool const installed =
        s_services.compare_exchange_strong(expected, services.get(), std::memory_order_acq_rel);
    VN_ASSERT(installed);
    services.release();
}

void PxImageProtocolServices::finalize() {
    delete s_services.exchange(nullptr, std::memory_order_acq_rel);
}

PxImageProtocolServices& PxImageProtocolServices::getInstance() {
    PxImageProtocolServices* s = s_services.load(std::memory_order_acquire);
    VN_ASSERT(s != nullptr);
    return *s;
}

bool PxImageProtocolServices::isInitialized() noexcept {
    return s_services.load(std::memory_order_acquire) != nullptr;
}

} // namespace Vn
