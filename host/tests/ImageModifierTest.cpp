// Image modifiers through the engine: Grade's pixels, masking, mute, the format agreement of
// the inputs and the frames a full-frame modifier gathers.
#include "EvEventManager.h"
#include "ExBase.h"
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "IxImageOps.h"
#include "PiCommandStack.h"
#include "PiImageInputPolicy.h"
#include "PiImageModifier.h"
#include "PiImageModifierProtocol.h"
#include "PiSockets.h"
#include "PiValueInterface.h"
#include "PxConfig.h"
#include "PxRequestMgr.h"

#include "ToolGraphFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <map>
#include <mutex>

using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
using Image = PxStrongHndl<PxImageProtocol const>;

// Tiles asked of a node, by tile position.
struct Counter {
    std::mutex m;
    std::map<std::pair<int, int>, int> tiles;
    std::atomic<int> regions{0};
    // The sum of the counts, or their largest.
    int total(bool most = false) {
        std::lock_guard g(m);
        int n = 0;
        for (auto const& t : tiles)
            n = most ? std::max(n, t.second) : n + t.second;
        return n;
    }
};

// Its source unchanged, counting the tiles asked; with a frame, all of it in one tile, as a
// node that can only make whole frames does.
class CountNode final : public PxImageNode {
public:
    CountNode(Image const& source, Counter* counter, bool fullFrame)
        : PxNode(PxNode::Init{"count"}), PxImageNode(PxNode::Init{"count"}, source),
          _counter(counter), _fullFrame(fullFrame) {}
    bool producesFullFrames() const override { return _fullFrame; }
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override {
        ++_counter->regions;
        return PxImageNode::getImageROD(context);
    }
    PxImageResult getImageResult(PxImageContext const& context) const override {
        if (!context.isOutside()) {
            std::lock_guard g(_counter->m);
            ++_counter->tiles[{context.getTile().x, context.getTile().y}];
        }
        if (!_fullFrame || context.isOutside())
            return getPrimary()->getImageResult(context);
        PxValidityInterval vi = PxValidityInterval::FULL;
        GeRectangle<int> const frame =
            nominalToPixelized(getImageROD(context.getTimeStreamContext()).getROD(), 1.0f, 1.0f);
        IxTile const tile(getImageFormat().getPixelFormat(), frame, {});
        IxWriteGuard const guard(tile);
        ipSet(guard, frame, {0.5f, 0.25f, 0.125f, 1.0f});
        return {tile, vi};
    }

protected:
    void init() override {
        PxImageNode::init();
        registerChild(getPrimary());
    }

private:
    Counter* _counter;
    bool _fullFrame;
};

// Its source's pixels over a region moved right, for the regions a modifier unites.
class ShiftNode final : public PxImageNode {
public:
    ShiftNode(Image const& source, float dx)
        : PxNode(PxNode::Init{"shift"}), PxImageNode(PxNode::Init{"shift"}, source), _dx(dx) {}
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override {
        PxRODResult const r = getPrimary()->getImageROD(context);
        GeRectangle<float> rod = r.getROD();
        rod.xmin += _dx;
        rod.xmax += _dx;
        return {rod, r.getValidityInterval()};
    }
    PxImageResult getImageResult(PxImageContext const& context) const override {
        return getPrimary()->getImageResult(context);
    }

protected:
    void init() override {
        PxImageNode::init();
        registerChild(getPrimary());
    }

private:
    float _dx;
};

class CountController final : public HoToolController {
public:
    CountController(Counter* c, bool fullFrame) : _c(c), _fullFrame(fullFrame) {}
    void createProcNodes(OutputPublisher& p) override {
        p.publish("Output",
                  initialised<Image>(new CountNode(imageInput(p, "Source"), _c, _fullFrame)));
    }
    Counter* _c;
    bool _fullFrame;
};

// A tool that passes its source on, or makes a whole frame, counting tiles.
RCShdPtr<PiTool const> countTool(Counter* c, bool fullFrame = false) {
    return testTool({"Count"}, imageSockets({"Source"}),
                    [=] { return new CountController(c, fullFrame); });
}

// A modifier whose front is its back, counted, or a whole frame of one colour; with an "Extra"
// input that follows the primary's components and depth.
class ProbeController final : public HoToolController, public PiImageModifier {
public:
    ProbeController(Counter* c, bool fullFrame, float shift = 0)
        : _c(c), _fullFrame(fullFrame), _shift(shift) {}
    PiToolTopologyInterface::Node
    createInputProcNode(RCShdPtr<PiInput> const& in,
                        PiToolTopologyInterface::Node const& child) override {
        return createInputNode(in, child);
    }
    void createProcNodes(PiToolTopologyInterface::OutputPublisher& p) override {
        p.disableParentCheck(); // Extra is only converted
        createModifierProcNode(p);
    }
    Image createFrontNode(PiToolTopologyInterface::OutputPublisher&, Image const& back) override {
        if (_shift != 0)
            return initialised<Image>(new ShiftNode(back, _shift));
        return initialised<Image>(new CountNode(back, _c, _fullFrame));
    }

private:
    void valueChanged(RCShdPtr<PiValue> const& value) override { storedValueChanged(value); }
    Counter* _c;
    bool _fullFrame;
    float _shift;
};

class ProbeProtocol final : public PiImageModifierProtocol {
public:
    ProbeProtocol(Counter* c, bool fullFrame, bool layers = false, float shift = 0)
        : PiImageModifierProtocol("Probe", "Test", "1.0"), _c(c), _fullFrame(fullFrame),
          _layers(layers), _shift(shift) {}
    bool supportsAffectRgb() const override { return _shift != 0; }
    bool supportsAffectAlpha() const override { return _shift != 0; }
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE,
                  PiImageInputPolicy::createPrimary(PiImageInputPolicy::RGBA_COMPONENTS,
                                                    PiImageInputPolicy::ALL_DEPTHS));
        d.require("Extra", PiSocketType::IMAGE,
                  PiImageInputPolicy::createSecondary(
                      PiImageInputPolicy::PRIMARY_COMPONENTS, PiImageInputPolicy::ALL_DEPTHS,
                      PiImageInputPolicy::PRIMARY_DEPTH, PiImageInputPolicy::KEEP_ASPECT, 0, 0));
        d.require("Layers", PiSocketType::IMAGE, {}, PiSocketType::COMPOSITE);
        PiImageModifier::describeModifier(d);
    }
    std::string getPrimaryInput() const override { return _layers ? "Layers" : "Source"; }
    std::string getPrimaryOutput() const override { return "Output"; }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new ProbeController(_c, _fullFrame, _shift));
    }
    Counter* _c;
    bool _fullFrame;
    bool _layers;
    float _shift;
};

template <class... A>
RCShdPtr<PiTool const> probeTool(A... a) {
    return RCShdPtr<PiTool const>(
        new PiTool(RCShdPtr<PiToolProtocol const>(new ProbeProtocol(a...))));
}

constexpr int kW = 40;
constexpr int kH = 24;

// The grade of one component, in double.
float graded(float x, double lift, double gain, double gamma, double offset) {
    double v = lift + double(x) * (gain - lift);
    if (v > 0)
        v = std::pow(v, 1.0 / gamma);
    return static_cast<float>(v + offset);
}

class ImageModifierTest : public ToolGraphFixture {
public:
    RCShdPtr<PiToolNode> add(RCShdPtr<PiTool const> const& t, std::string const& name, int w = kW,
                             int h = kH) {
        return addTool(t, name, w, h);
    }
    static RCShdPtr<PiImageModifier> modifier(RCShdPtr<PiToolNode> const& n) {
        return rcCast<PiImageModifier>(n->getController().lock());
    }
    static int mismatches(HoImage const& img, std::function<Color(int, int)> const& want,
                          float tolerance) {
        return Vn::mismatches(img, want, tolerance, true);
    }
};

struct GradeParams {
    double lift[4], gain[4], gamma[4], offset[4];
};

void setGrade(RCShdPtr<PiToolNode> const& g, GradeParams const& p) {
    char const* const channels[] = {"Red", "Green", "Blue", "Alpha"};
    for (int c = 0; c < 4; ++c)
        for (auto const& [k, v] :
             {std::pair{"Lift.", p.lift[c]}, std::pair{"Gain.", p.gain[c]},
              std::pair{"Gamma.", p.gamma[c]}, std::pair{"Offset.", p.offset[c]}})
            ImageModifierTest::set<double>(g, k + std::string(channels[c]), v);
}

Color gradeOf(Color const& in, GradeParams const& p) {
    float const* s = &in.r;
    float v[4];
    for (int c = 0; c < 4; ++c)
        v[c] = graded(s[c], p.lift[c], p.gain[c], p.gamma[c], p.offset[c]);
    return {v[0], v[1], v[2], v[3]};
}

// The changed colour in the components the affect names, the kept one in the others.
Color affected(Color const& changed, Color const& kept, int affect) {
    Color out = kept;
    for (int c = 0; c < 4; ++c)
        if (affect == PiImageModifierTypes::AFFECT_RGBA ||
            (affect == PiImageModifierTypes::AFFECT_RGB) == (c < 3))
            (&out.r)[c] = (&changed.r)[c];
    return out;
}

GradeParams const kGrade = {
    {0.05, -0.1, 0.0, 0.0}, {1.5, 0.8, 2.0, 0.8}, {2.2, 1.0, 0.5, 1.0}, {0.0, 0.02, -0.01, 0.05}};

} // namespace

// Grade alone, then masked by a gained pattern: every pixel is (A - B) * m + B with A the grade,
// B the source and m the chosen mask channel times the intensity, A and B swapped by invert;
// inactive, the grade shows unmasked. Components outside the affect are the source's.
TEST_F(ImageModifierTest, GradeMaskedMatchesThePerPixelFormula) {
    RCShdPtr<PiToolNode> const src = add(HoTools::testPattern(), "Pattern");
    RCShdPtr<PiToolNode> const maskSrc = add(HoTools::testPattern(), "MaskPattern");
    RCShdPtr<PiToolNode> const maskGain = add(HoTools::gain(), "MaskGain");
    set<double>(maskGain, "Gain", 0.7);
    connect(maskSrc, maskGain, "Source");
    RCShdPtr<PiToolNode> const g = add(HoTools::grade(), "Grade");
    // Without a source there is no image, and no failure.
    EXPECT_EQ(renderTool(g).width, 0);
    connect(src, g, "Source");
    setGrade(g, kGrade);
    RCShdPtr<PiImageModifier> const mod = modifier(g);
    auto const setAffect = [&](int affect) {
        PiUndoGuard guard(*graph, "Affect");
        mod->setAffect(static_cast<PiImageModifierTypes::AffectType>(affect));
    };
    int const rgba = PiImageModifierTypes::AFFECT_RGBA, rgb = PiImageModifierTypes::AFFECT_RGB,
              alpha = PiImageModifierTypes::AFFECT_ALPHA;
    for (int affect : {rgb, alpha, rgba}) {
        setAffect(affect);
        auto const a = [&](int x, int y) {
            return affected(gradeOf(patternAt(x, y, kW, kH), kGrade), patternAt(x, y, kW, kH),
                            affect);
        };
        EXPECT_EQ(mismatches(renderTool(g), a, 1e-5f), 0) << "unmasked, affect " << affect;
    }

    connect(maskGain, g, "Mask");
    struct Case {
        bool active;
        int channel;
        double intensity;
        bool invert;
        int maskW, maskH; // a mask larger than the image widens the output
        int affect;
    };
    Case const cases[] = {
        {true, 3, 1.0, false, kW, kH, rgba},         {true, 3, 0.5, false, kW, kH, rgba},
        {true, 0, 1.0, false, kW, kH, rgba},         {true, 1, 0.5, true, kW, kH, rgba},
        {true, 3, 1.0, true, kW, kH, rgba},          {false, 3, 1.0, true, kW, kH, rgba},
        {true, 3, 0.5, false, kW / 2, kH / 2, rgba}, {true, 3, 1.0, true, 2 * kW, 2 * kH, rgba},
        {true, 3, 0.5, false, kW, kH, rgb},          {true, 1, 0.5, true, kW, kH, rgb},
        {true, 3, 0.5, true, 2 * kW, 2 * kH, rgb},   {true, 0, 1.0, false, kW, kH, alpha},
        {true, 3, 0.5, true, kW / 2, kH / 2, alpha}, {false, 3, 1.0, false, kW, kH, rgb},
        {false, 3, 1.0, true, kW, kH, alpha}};
    for (Case const& c : cases) {
        setAffect(c.affect);
        set<bool>(g, "Mask Active", c.active);
        set<int>(g, "Mask Channel", c.channel);
        set<double>(g, "Mask Intensity", c.intensity);
        set<bool>(g, "Mask Invert", c.invert);
        set<int>(maskSrc, "Width", c.maskW);
        set<int>(maskSrc, "Height", c.maskH);
        // Frames start at the origin, y up, and the rows come top first: an image lies at the
        // left of the output and at its bottom. Outside its frame it is transparent black.
        int const w = c.active ? std::max(kW, c.maskW) : kW,
                  h = c.active ? std::max(kH, c.maskH) : kH;
        auto const at = [&](int x, int y, int iw, int ih) {
            y -= h - ih;
            return x < 0 || y < 0 || x >= iw || y >= ih ? Color{0, 0, 0, 0}
                                                        : patternAt(x, y, iw, ih);
        };
        auto const want = [&](int x, int y) {
            Color const p = at(x, y, kW, kH);
            Color const front = gradeOf(p, kGrade);
            if (!c.active)
                return affected(front, p, c.affect);
            Color const q = at(x, y, c.maskW, c.maskH);
            Color const mask{q.r * 0.7f, q.g * 0.7f, q.b * 0.7f, q.a};
            float const m = (&mask.r)[c.channel] * float(c.intensity);
            Color const A = c.invert ? p : front, B = c.invert ? front : p;
            return affected(Color{(A.r - B.r) * m + B.r, (A.g - B.g) * m + B.g,
                                  (A.b - B.b) * m + B.b, (A.a - B.a) * m + B.a},
                            p, c.affect);
        };
        HoImage const img = renderTool(g);
        EXPECT_EQ(img.width, w);
        EXPECT_EQ(mismatches(img, want, 1e-5f), 0)
            << "active " << c.active << " channel " << c.channel << " intensity " << c.intensity
            << " invert " << c.invert << " mask " << c.maskW << " affect " << c.affect;
    }
}

// A long chain of masked modifiers costs a tile of each per tile: each reads its back for the
// mix and, through its front, again; yet every tile of the source is asked once per frame, as
// nothing below is walked once per path through fronts and backs.
TEST_F(ImageModifierTest, ChainOfMaskedModifiersAsksEachSourceTileOnce) {
    Counter source;
    int const w = PxConfig::getTileSizeX() + 8, h = 8;
    RCShdPtr<PiToolNode> const pattern = add(HoTools::testPattern(), "Pattern", w, h);
    RCShdPtr<PiToolNode> const opaque = add(HoTools::colorSource(), "Opaque", w, h);
    RCShdPtr<PiToolNode> last = add(countTool(&source), "Count");
    connect(pattern, last, "Source");
    int const n = 16;
    for (int i = 0; i < n; ++i) {
        RCShdPtr<PiToolNode> const g = add(HoTools::grade(), "Grade" + std::to_string(i));
        set<double>(g, "Offset.Red", 1.0 / 64);
        connect(last, g, "Source");
        connect(opaque, g, "Mask");
        last = g;
    }
    for (int frame = 0; frame < 2; ++frame) {
        std::map<std::pair<int, int>, int> const before = source.tiles;
        int const regionsBefore = source.regions;
        HoImage const img = renderTool(last, frame);
        // Its region is asked as often: a few times a frame, not once per road.
        EXPECT_LE(source.regions - regionsBefore, n) << "frame " << frame;
        ASSERT_EQ(source.tiles.size(), 2u);
        for (auto const& [t, count] : source.tiles)
            EXPECT_EQ(count - (before.count(t) ? before.at(t) : 0), 1)
                << "frame " << frame << " tile " << t.first << "," << t.second;
        EXPECT_EQ(mismatches(
                      img,
                      [&](int x, int y) {
                          Color p = patternAt(x, y, w, h, frame);
                          p.r += float(n) / 64;
                          return p;
                      },
                      1e-5f),
                  0)
            << frame;
    }
}

// A list of layers as the primary input gives no image to stand behind the tool's result: the
// back is an image without pixels, and the tool renders nothing rather than fail.
TEST_F(ImageModifierTest, LayersAsThePrimaryInputGiveAnEmptyBack) {
    Counter front;
    RCShdPtr<PiToolNode> const probe = add(probeTool(&front, false, true), "Probe");
    EXPECT_EQ(renderTool(probe).width, 0);
}

// Muted, the tool shows its source and asks neither its front nor its mask for anything; the
// mute reaches the workers without a rebuild, and unmuting brings the front back.
TEST_F(ImageModifierTest, MuteEvaluatesNeitherFrontNorMask) {
    Counter front, mask;
    RCShdPtr<PiToolNode> const src = add(HoTools::testPattern(), "Pattern");
    RCShdPtr<PiToolNode> const maskSrc = add(HoTools::testPattern(), "MaskPattern");
    RCShdPtr<PiToolNode> const counted = add(countTool(&mask), "MaskCount");
    connect(maskSrc, counted, "Source");
    RCShdPtr<PiToolNode> const probe = add(probeTool(&front, false), "Probe");
    connect(src, probe, "Source");
    connect(counted, probe, "Mask");
    HoImage const shown = renderTool(probe);
    EXPECT_GT(front.total(), 0);
    EXPECT_GT(mask.total(), 0);

    RCShdPtr<PiImageModifier> const m = modifier(probe);
    Image const outBefore = m->getOutputNode();
    {
        PiUndoGuard guard(*graph, "Mute");
        m->setMute(true);
    }
    EXPECT_TRUE(m->getMute());
    int const frontBefore = front.total(), maskBefore = mask.total();
    HoImage const muted = renderTool(probe);
    EXPECT_EQ(front.total(), frontBefore);
    EXPECT_EQ(mask.total(), maskBefore);
    EXPECT_EQ(m->getOutputNode().get(), outBefore.get()) << "mute rebuilt the tool";
    EXPECT_EQ(muted.format, shown.format);
    EXPECT_EQ(mismatches(
                  muted, [](int x, int y) { return patternAt(x, y, kW, kH); }, 0.0f),
              0);

    // Undone, the mute goes and the front is asked again; redone, it comes back.
    graph->getCommandStack().undo();
    EXPECT_FALSE(m->getMute());
    renderTool(probe);
    EXPECT_GT(front.total(), frontBefore);
    graph->getCommandStack().redo();
    int const frontMuted = front.total();
    renderTool(probe);
    EXPECT_EQ(front.total(), frontMuted);

    // A reset unmutes and picks the first affect the tool supports; others are refused.
    EXPECT_THROW(m->setAffect(PiImageModifierTypes::AFFECT_ALPHA), ExBase);
    {
        PiUndoGuard guard(*graph, "Reset");
        m->reset();
    }
    EXPECT_FALSE(m->getMute());
    EXPECT_EQ(m->getAffect(), PiImageModifierTypes::AFFECT_RGBA);
    renderTool(probe);
    EXPECT_GT(front.total(), frontMuted);
}

// A full-frame modifier over a 4 x 4-tile image, masked: the renderer asks each of its tiles,
// yet each tile of the back and of the mask is asked once for the frame; also when the whole
// frames come from the mask, and the front, which reads the back tile by tile, is gathered too.
TEST_F(ImageModifierTest, FullFrameModifierAsksEachChildTileOnce) {
    int const w = 3 * PxConfig::getTileSizeX() + 8, h = 3 * PxConfig::getTileSizeY() + 8;
    RCShdPtr<PiToolNode> const src = add(HoTools::testPattern(), "Pattern", w, h);
    for (bool const maskFull : {false, true}) {
        std::string const k = maskFull ? "2" : "1";
        Counter front, back, mask;
        RCShdPtr<PiToolNode> const backCount = add(countTool(&back), "BackCount" + k);
        RCShdPtr<PiToolNode> const maskCount = add(countTool(&mask, maskFull), "MaskCount" + k);
        connect(src, backCount, "Source");
        connect(src, maskCount, "Source");
        RCShdPtr<PiToolNode> const probe = add(probeTool(&front, !maskFull), "Probe" + k);
        connect(backCount, probe, "Source");
        connect(maskCount, probe, "Mask");
        renderTool(probe); // builds the tools; their edits reach the workers
        for (int frame = 1; frame <= 2; ++frame) {
            // An edit drops the gathered frames: the next frame asks each tile once again.
            set<double>(probe, "Mask Intensity", 0.5 / frame);
            std::map<std::pair<int, int>, int> const backBefore = back.tiles,
                                                     maskBefore = mask.tiles;
            HoImage const img = renderTool(probe);
            ASSERT_EQ(back.tiles.size(), 16u);
            ASSERT_EQ(mask.tiles.size(), 16u);
            for (auto const& [t, n] : back.tiles)
                EXPECT_EQ(n - backBefore.at(t), 1)
                    << "back " << t.first << "," << t.second << " mask full " << maskFull;
            for (auto const& [t, n] : mask.tiles)
                EXPECT_EQ(n - maskBefore.at(t), 1)
                    << "mask " << t.first << "," << t.second << " mask full " << maskFull;
            // A whole-frame front shows through the mask's alpha times the intensity; a front
            // that passes its back on leaves the back.
            Color const p = patternAt(w / 2, h / 2, w, h), got = img.getColor(w / 2, h / 2);
            float const m = maskFull ? 0.0f : p.a * 0.5f / float(frame);
            EXPECT_NEAR(got.r, (0.5f - p.r) * m + p.r, 1e-5f);
            EXPECT_NEAR(got.a, (1.0f - p.a) * m + p.a, 1e-5f);
        }
    }
}

// A new primary format re-converts the other inputs: each signals a ConversionEvent for its
// input, and the output takes the primary's format.
TEST_F(ImageModifierTest, NewPrimaryFormatReconvertsEverySecondaryInput) {
    Counter front;
    RCShdPtr<PiToolNode> const src = add(HoTools::testPattern(), "Pattern");
    RCShdPtr<PiToolNode> const convert = add(HoTools::convert(), "Convert");
    rcCast<PiTypedValue<int>>(convert->findValue("Depth"))->set(IxPixelFormat::UINT8);
    connect(src, convert, "Source");
    RCShdPtr<PiToolNode> const extra = add(HoTools::testPattern(), "Extra");
    RCShdPtr<PiToolNode> const probe = add(probeTool(&front, false), "Probe");
    connect(convert, probe, "Source");
    connect(extra, probe, "Extra");
    RCShdPtr<PiImageModifier> const m = modifier(probe);

    struct Events final : CbHandler<PiNodeEvent> {
        std::mutex mx;
        std::vector<std::pair<std::string, PiImageModifier::ConversionInfo>> seen;
        void execute(PiNodeEvent const& e) override {
            if (auto const* c = dynamic_cast<PiImageModifier::ConversionEvent const*>(&e)) {
                std::lock_guard g(mx);
                seen.emplace_back(c->input ? c->input->getName() : "", c->info);
            }
        }
    } events;
    m->addConversionHandler(&events);
    EXPECT_EQ(renderTool(probe).format.getDepth(), IxPixelFormat::UINT8);
    EvEventManager::getInstance().flush();
    auto const extraInfo = m->getConversionInfo(*probe->findInput("Extra"));
    EXPECT_EQ(extraInfo.source.getPixelFormat().getDepth(), IxPixelFormat::FLOAT32);
    EXPECT_EQ(extraInfo.target.getPixelFormat().getDepth(), IxPixelFormat::UINT8);

    for (int depth : {int(IxPixelFormat::FLOAT16), int(IxPixelFormat::FLOAT32)}) {
        {
            std::lock_guard g(events.mx);
            events.seen.clear();
        }
        rcCast<PiTypedValue<int>>(convert->findValue("Depth"))->set(depth);
        HoImage const img = renderTool(probe);
        EvEventManager::getInstance().flush();
        EXPECT_EQ(img.format.getDepth(), depth);
        std::lock_guard g(events.mx);
        std::map<std::string, int> targets;
        for (auto const& [name, info] : events.seen)
            targets[name] = info.target.getPixelFormat().getDepth();
        EXPECT_EQ(targets, (std::map<std::string, int>{{"Extra", depth}, {"Source", depth}}))
            << depth;
    }
    m->removeConversionHandler(&events);
}

// Where the tool leaves components or pixels to the back, its region covers the back's, the
// front's and, masking, the mask's; changing every component unmasked, it is the front's alone.
TEST_F(ImageModifierTest, RegionUnitesWhatShowsThrough) {
    using Affect = PiImageModifierTypes::AffectType;
    RCShdPtr<PiToolNode> const src = add(HoTools::testPattern(), "Pattern");
    RCShdPtr<PiToolNode> const maskSrc = add(HoTools::testPattern(), "MaskPattern", 8, 60);
    RCShdPtr<PiToolNode> const probe = add(probeTool(nullptr, false, false, 10.0f), "Probe");
    connect(src, probe, "Source");
    renderTool(probe);
    RCShdPtr<PiImageModifier> const m = modifier(probe);
    using R = GeRectangle<float>;
    R const back(0, kW, 0, kH), front(10, kW + 10, 0, kH), mask(0, 8, 0, 60);
    // The rows without a mask come first: it stays connected once connected.
    struct Case {
        char const* name;
        Affect affect;
        bool masked, active, mute;
        R want;
    };
    Case const cases[] = {
        {"all components", PiImageModifierTypes::AFFECT_RGBA, false, true, false, front},
        {"colour", PiImageModifierTypes::AFFECT_RGB, false, true, false, back.unite(front)},
        {"alpha", PiImageModifierTypes::AFFECT_ALPHA, false, true, false, back.unite(front)},
        {"masked", PiImageModifierTypes::AFFECT_RGBA, true, true, false,
         back.unite(front).unite(mask)},
        {"mask off", PiImageModifierTypes::AFFECT_RGBA, true, false, false, front},
        {"muted", PiImageModifierTypes::AFFECT_RGB, true, true, true, back},
    };
    for (Case const& c : cases) {
        {
            PiUndoGuard guard(*graph, c.name);
            m->setAffect(c.affect);
            m->setMute(c.mute);
        }
        set<bool>(probe, "Mask Active", c.active);
        if (c.masked && !probe->findInput("Mask")->getConnectedOutput())
            connect(maskSrc, probe, "Mask");
        renderTool(probe);
        R const got = m->getOutputNode()->getImageROD(PxTimeStreamContext(0.0, 0)).getROD();
        EXPECT_EQ(got.xmin, c.want.xmin) << c.name;
        EXPECT_EQ(got.xmax, c.want.xmax) << c.name;
        EXPECT_EQ(got.ymin, c.want.ymin) << c.name;
        EXPECT_EQ(got.ymax, c.want.ymax) << c.name;
    }
}

// Each tile of a blur's source serves up to nine of its tiles, yet is made once per frame; a new
// size keeps it, while a new frame or an edit below asks for each tile again. One worker: two
// that miss the same tile at once both make it.
TEST_F(ImageModifierTest, BlurAsksEachSourceTileOncePerFrame) {
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    int const workers = mgr.getMaxRunningWorkers();
    mgr.setMaxRunningWorkers(1);
    struct Restore {
        PxRequestMgr& mgr;
        int workers;
        ~Restore() { mgr.setMaxRunningWorkers(workers); }
    } const restore{mgr, workers};
    int const w = 3 * PxConfig::getTileSizeX() + 8, h = 3 * PxConfig::getTileSizeY() + 8;
    RCShdPtr<PiToolNode> const src = add(HoTools::testPattern(), "Pattern", w, h);
    Counter count;
    RCShdPtr<PiToolNode> const counted = add(countTool(&count), "Count");
    connect(src, counted, "Source");
    RCShdPtr<PiToolNode> const blur = add(HoTools::blur(), "Blur");
    connect(counted, blur, "Source");
    auto asked = [&](int times) {
        ASSERT_EQ(count.tiles.size(), 16u);
        for (auto const& [t, n] : count.tiles)
            EXPECT_EQ(n, times) << "tile " << t.first << "," << t.second;
    };
    renderTool(blur);
    asked(1);
    set<double>(blur, "Size", 3.0);
    renderTool(blur);
    asked(1);
    renderTool(blur, 1.0);
    asked(2);
    set<int>(src, "Width", w - 1);
    renderTool(blur, 1.0);
    asked(3);
}
