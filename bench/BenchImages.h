// What the image benchmarks share: a 4K RGBA float frame whose tiles are made once, the same
// pixels as one plain buffer for the reference libraries, and a render that stops at the frame's
// tiles in memory.
#pragma once

#include "IxGuardBase.h"
#include "PxImageRequests.h"
#include "PxImageSourceNodes.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"

#include <map>
#include <random>
#include <vector>

namespace VnBench {

using namespace Vn;

constexpr int kW = 3840;
constexpr int kH = 2160;

template <class N>
PxStrongHndl<N> made(N* n) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return h;
}
template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const> value(T v) {
    return made(new PxAnimValueNode<T>(PxNode::Init{"value"}, PxResult<T>(v)));
}

// A frame whose tiles are made once, before timing.
class PreparedSource final : public PxImageLeafNode {
public:
    using PxImageLeafNode::PxImageLeafNode;
    void prepare() {
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        GeRectangle<int> const tiles = convertPixelsToTiles({0, kW, 0, kH});
        for (int j = tiles.ymin; j < tiles.ymax; ++j)
            for (int i = tiles.xmin; i < tiles.xmax; ++i) {
                PxValidityInterval vi = PxValidityInterval::FULL;
                IxTile const t = allocateImageBuffer(PxImageContext(0.0, {i, j}, 0, 0), vi);
                IxWriteGuard const g(t);
                GeRectangle<int> const& r = t.getPixelRegion();
                for (int y = r.ymin; y < r.ymax; ++y)
                    for (int x = r.xmin; x < r.xmax; ++x)
                        *g.getPixel<CoRgbaColorTyped<float>>(x, y) = {u(rng), u(rng), u(rng), 1};
                _tiles[{i, j}] = t;
            }
    }
    PxImageResult getImageResult(PxImageContext const& c) const override {
        auto const it = _tiles.find({c.getTile().x, c.getTile().y});
        if (it == _tiles.end())
            return PxImageResult(allocateEmptyImageBuffer(), PxValidityInterval::FULL);
        return PxImageResult(it->second, PxValidityInterval::FULL);
    }

private:
    std::map<std::pair<int, int>, IxTile> _tiles;
};

inline PxStrongHndl<PxImageProtocol const>& source() {
    static PxStrongHndl<PxImageProtocol const> s = [] {
        PxStrongHndl<PxImageFormatProtocol const> f = made(new PxImageFormatNode(
            PxNode::Init{"format"},
            PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                          Rational(25))));
        auto* src = new PreparedSource(PxNode::Init{"source"}, f, value(kW), value(kH),
                                       value(CoRgbColorTyped<float>{}), value(0.0));
        PxStrongHndl<PxImageProtocol const> h = made(src);
        src->prepare();
        return h;
    }();
    return s;
}

// Random pixels as the reference libraries take them.
inline std::vector<float>& plainSource() {
    static std::vector<float> p = [] {
        std::vector<float> v(std::size_t(kW) * kH * 4);
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        for (float& x : v)
            x = u(rng);
        return v;
    }();
    return p;
}

// Every tile of the frame through the engine, kept as tiles: the pixels in memory.
inline std::size_t renderTiles(PxStrongHndl<PxImageProtocol const> const& node) {
    PxRequestPtr<PxImageMultiTileRequest> r(
        new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(node), 0, PxTimeInfo(0.0), 0));
    PxRequestMgr::getInstance().executeRequest(r.get(), false);
    std::size_t pixels = 0;
    for (PxImageResult const& t : *r->getResults())
        pixels +=
            std::size_t(t.getPixelRegion().width()) * std::size_t(t.getPixelRegion().height());
    return pixels;
}

} // namespace VnBench
