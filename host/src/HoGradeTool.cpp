#include "HoTools.h"

#include "ExBase.h"
#include "PiImageInputPolicy.h"
#include "PiImageModifier.h"
#include "PiImageModifierProtocol.h"
#include "PiPixelLoop.h"
#include "PxImageNode.h"
#include "PxValueProtocol.h"

#include <array>
#include <cmath>

#include <immintrin.h>

namespace Vn {

namespace {

using Color = CoRgbaColorTyped<float>;
using Channel = PxStrongHndl<PxAnimValueProtocol<double> const>;

char const* const kChannels[] = {"Red", "Green", "Blue", "Alpha"};
enum Param { LIFT, GAIN, GAMMA, OFFSET, NB_PARAMS };
char const* const kParams[] = {"Lift", "Gain", "Gamma", "Offset"};

// Per component c: v = lift + x * (gain - lift); v = v^(1 / gamma) where v > 0; out = v + offset.
struct Grade {
    float lift[4], scale[4], invGamma[4], offset[4];
    bool linear[4];
};

class GradeLoop final : public PiPixelLoopOneSource {
public:
    GradeLoop(IxWriteGuard& result, Grade const& g)
        : PiPixelLoopOneSource(result, PiImageModifierTypes::AFFECT_RGBA), _g(g) {
        // -0 adds nothing, not even to -0: the components with a power or no offset keep their
        // bits.
        for (int c = 0; c < 4; ++c)
            _linearOffset[c] = g.linear[c] && g.offset[c] != 0.0f ? g.offset[c] : -0.0f;
    }

    void processScanline(Scanline& dst, Scanline const& src) override {
        Color* d = dst.getData();
        Color const* s = src.getData();
        int const n = dst.getWidth();
        // A pixel a register, in the scalar order of operations: (lift + v scale) + offset.
        __m128 const lift = _mm_loadu_ps(_g.lift), scale = _mm_loadu_ps(_g.scale);
        __m128 const offset = _mm_loadu_ps(_linearOffset);
        for (int i = 0; i < n; ++i)
            _mm_storeu_ps(
                &d[i].r,
                _mm_add_ps(_mm_add_ps(lift, _mm_mul_ps(_mm_loadu_ps(&s[i].r), scale)), offset));
        for (int c = 0; c < 4; ++c) {
            if (_g.linear[c])
                continue;
            float const e = _g.invGamma[c], o = _g.offset[c];
            for (float* v = &d[0].r + c; v < &d[n].r; v += 4)
                *v = (*v > 0.0f ? std::pow(*v, e) : *v) + o;
        }
    }
    Color processFillColor(Color const& fill) override {
        float const* s = &fill.r;
        float v[4];
        for (int c = 0; c < 4; ++c) {
            v[c] = _g.lift[c] + s[c] * _g.scale[c];
            if (!_g.linear[c] && v[c] > 0.0f)
                v[c] = std::pow(v[c], _g.invGamma[c]);
            v[c] += _g.offset[c];
        }
        return {v[0], v[1], v[2], v[3]};
    }

private:
    Grade _g;
    float _linearOffset[4];
};

class GradeNode final : public PxImageNode {
public:
    GradeNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
              std::array<Channel, NB_PARAMS * 4> const& params)
        : PxNode(init), PxImageNode(init, source) {
        for (std::size_t i = 0; i < params.size(); ++i) {
            VN_ASSERT(!params[i].isNull());
            _params[i] = params[i];
        }
    }

    PxImageResult getImageResult(PxImageContext const& context) const override {
        PxValidityInterval vi = PxValidityInterval::FULL;
        GeRectangle<int> const region = computeTileRegion(context, vi);
        float p[NB_PARAMS * 4];
        for (std::size_t i = 0; i < _params.size(); ++i) {
            PxResult<double> const r = _params[i]->getValue(PxTimeContext(context.getTime()));
            r.reduceVI(vi);
            p[i] = static_cast<float>(r.getValue());
        }
        Grade g{};
        for (int c = 0; c < 4; ++c) {
            float const lift = p[LIFT * 4 + c], gain = p[GAIN * 4 + c];
            float const gamma = p[GAMMA * 4 + c];
            g.lift[c] = lift;
            g.scale[c] = gain - lift;
            g.invGamma[c] = 1.0f / gamma;
            g.offset[c] = p[OFFSET * 4 + c];
            g.linear[c] = gamma == 1.0f;
        }
        PxImageResult const source = getPrimary()->getImageResult(context);
        source.reduceVI(vi);
        IxTile const tile = context.isOutside() ? allocateEmptyImageBuffer()
                                                : allocateImageBuffer(context, {}, region);
        IxWriteGuard guard(tile);
        GradeLoop loop(guard, g);
        loop.process(source.getTileGuard());
        return {guard.getTile(), vi};
    }

protected:
    void init() override {
        PxImageNode::init();
        registerChild(getPrimary());
        for (auto const& p : _params)
            registerChild(p);
    }

private:
    std::array<PxNodePtr<PxAnimValueProtocol<double> const>, NB_PARAMS * 4> _params;
};

class GradeController final : public HoToolController, public PiImageModifier {
public:
    PiToolTopologyInterface::Node
    createInputProcNode(RCShdPtr<PiInput> const& in,
                        PiToolTopologyInterface::Node const& child) override {
        return createInputNode(in, child);
    }
    void createProcNodes(PiToolTopologyInterface::OutputPublisher& publisher) override {
        createModifierProcNode(publisher);
    }
    Image createFrontNode(PiToolTopologyInterface::OutputPublisher& p, Image const& back) override {
        std::array<Channel, NB_PARAMS * 4> params;
        for (int k = 0; k < NB_PARAMS; ++k)
            for (int c = 0; c < 4; ++c)
                params[static_cast<std::size_t>(k * 4 + c)] =
                    doubleInput(p, std::string(kParams[k]) + "." + kChannels[c]);
        PxStrongHndl<GradeNode> n(new GradeNode(PxNode::Init{"grade"}, back, params));
        PxNode::init(PxStrongHndl<PxNode>(n));
        return Image(n);
    }

private:
    // Mute and affect reach the workers without a rebuild.
    void valueChanged(RCShdPtr<PiValue> const& value) override { storedValueChanged(value); }
};

class GradeProtocol final : public PiImageModifierProtocol {
public:
    GradeProtocol() : PiImageModifierProtocol("Grade", "Color", "1.0") {}
    bool supportsAffectRgb() const override { return true; }
    bool supportsAffectAlpha() const override { return true; }
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE, HoToolController::workingPolicy());
        struct Range {
            double min, max, def;
        };
        // A gamma at or below zero has no meaning; the policy keeps it away from it.
        Range const ranges[] = {{-1e6, 1e6, 0}, {-1e6, 1e6, 1}, {0.01, 100, 1}, {-1e6, 1e6, 0}};
        for (int k = 0; k < NB_PARAMS; ++k) {
            auto& s = d.requireStructured(kParams[k]);
            for (char const* c : kChannels)
                s.require(c, PiSocketType::DOUBLE,
                          PiRangeInputPolicy<double>::create(ranges[k].min, ranges[k].max,
                                                             ranges[k].def));
        }
        PiImageModifier::describeModifier(d);
    }
    std::string getPrimaryInput() const override { return "Source"; }
    std::string getPrimaryOutput() const override { return PiImageModifier::getOutputName(); }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new GradeController);
    }
};

} // namespace

RCShdPtr<PiTool const> HoTools::grade() {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(new GradeProtocol)));
}

} // namespace Vn
