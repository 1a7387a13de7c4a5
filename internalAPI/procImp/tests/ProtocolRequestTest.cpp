#include "EngineTestSupport.h"

#include "ExBase.h"
#include "PxCameraProtocol.h"
#include "PxCurveProtocol.h"
#include "PxEx.h"
#include "PxGeometryProtocol.h"
#include "PxImageProtocol.h"
#include "PxImageRequests.h"
#include "PxInteractiveProtocol.h"
#include "PxMaterialProtocol.h"
#include "PxObject3dProtocol.h"
#include "PxPassThroughNode.h"
#include "PxResultProtocol.h"
#include "PxShape2dProtocol.h"
#include "PxValueNode.h"

#include <cmath>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace VnTest;
using namespace Vn;

namespace {

// A node of every pointer, camera and interactive protocol. Its results are
// made once and tagged with n: n scene objects, shininess n, n shape points, a
// curve through (0, n), a field of view of n.
class Giver final : public PxObject3dProtocol,
                    public PxMaterialProtocol,
                    public PxGeometryProtocol,
                    public PxShape2dProtocol,
                    public PxCurveProtocol,
                    public PxCameraProtocol,
                    public PxInteractiveProtocol {
public:
    explicit Giver(int n, PxValidityInterval const& interval = PxValidityInterval(1, 4))
        : PxNode(PxNode::Init{"giver"}), vi(interval), scene(new SdScene),
          material(new SdMaterial({1, 0, 0, 1}, {1, 1, 1}, float(n))),
          shape(new PmShape2d(Vector<GePoint<float>>(n), true)), mesh(new SdMesh),
          curve(new GeCurve(Vector<GePoint<float>>{GePoint<float>{0.0f, float(n)}})),
          drawing(new SdMaterial) {
        for (int i = 0; i < n; ++i)
            scene->addObject(RCShdPtr<SdMesh const>(new SdMesh), material, {});
        camera.fieldOfView = n;
    }

    PxObject3dResult getScene(PxObject3dContext const& c) const override {
        seen(c.getTime());
        placement = c.getPlacement();
        return {scene, vi};
    }
    PxMaterialResult getMaterial(PxTimeContext const& c) const override {
        seen(c.getTime());
        return {material, vi};
    }
    PxGeometryResult getGeometry(PxGeometryContext const& c) const override {
        seen(c.getTime());
        return {mesh, vi};
    }
    PxShape2dResult getShape(PxTimeContext const& c) const override {
        seen(c.getTime());
        return {shape, vi};
    }
    PxCurveResult getCurve(PxTimeContext const& c) const override {
        seen(c.getTime());
        return {curve, vi};
    }
    PxCameraResult getCamera(PxTimeContext const& c) const override {
        seen(c.getTime());
        return {camera, vi};
    }
    PxInteractiveResult getInteractiveResult(PxTimeContext const& c,
                                             PxInteractiveOptions const& options,
                                             GePoint<float> const& pointer) const override {
        seen(c.getTime());
        threshold = options.getHighlightThreshold();
        PxInteractiveResult r(drawing, GeRectangle<int>(0, int(pointer.x), 0, int(pointer.y)),
                              {0, 1, 0, 1}, true);
        r.setValidityInterval(vi);
        return r;
    }

    void seen(double time) const {
        if (fail)
            VN_THROW_MSG(ExBase, "giver failed");
        lastTime = time;
    }

    PxValidityInterval vi;
    RCShdPtr<SdScene> scene;
    RCShdPtr<SdMaterial const> material;
    RCPvtEngPtr<PmShape2d> shape;
    RCShdPtr<SdMesh const> mesh;
    RCShdPtr<GeCurve> curve;
    RCShdPtr<RCBase<LkCounter<int>>> drawing;
    VwCamera camera;
    bool fail = false;
    mutable double lastTime = -1;
    mutable GeAffineMatrix3<float> placement;
    mutable float threshold = -1;
};

// Runs f on a worker, inside a request that outlives the requests f makes: a
// child request that f releases is cleaned up at once but its memory stays
// until f's request ends.
void onWorker(std::function<void()> f) {
    runAndWait(new FnRequest(std::move(f)));
}

// Runs a child request inline on the current worker and waits for it.
template <class R>
R* runChild(R* r) {
    engine().executeRequest(r, true);
    engine().waitRequest(r);
    return r;
}

} // namespace

using ProtocolRequests = EngineTest;

// Each pointer query gives the node's own object and interval; a second read
// gives the same result object without asking the engine again (a wait on a
// cleaned-up request is a fault); its release lets the object go. Nothing reads
// a request after its release.
TEST_F(ProtocolRequests, PointerQueriesGiveTheResultThenAnEmptyOneOnceReleased) {
    auto giver = makeNode(new Giver(3));
    GeAffineMatrix3<float> const placement(1, 0, 0, 0, 1, 0, 0, 0, 1, 5, 6, 7);
    struct Seen {
        bool sameObject = false, sameInterval = false, sameReference = false, emptied = false;
        double time = -1;
    };
    auto check = [&](auto* request, auto read, auto const& expected, Seen& seen) {
        int const before = expected->getRefCount();
        auto const& first = read(runChild(request));
        seen.sameObject = first.getValue() == expected;
        seen.sameInterval = first.getValidityInterval() == PxValidityInterval(1, 4);
        seen.time = giver->lastTime;
        seen.sameReference = &read(request) == &first;
        engine().releaseRequest(request);
        seen.emptied = expected->getRefCount() == before;
    };
    Seen scene, material, mesh, shape, curve;
    onWorker([&] {
        check(
            new PxObject3dRequest(PxUPtr<PxObject3dProtocol const>(giver.get()),
                                  PxObject3dContext(2.0, placement)),
            [](auto* r) -> auto const& { return r->getScene(); }, giver->scene, scene);
        check(
            new PxMaterialRequest(PxUPtr<PxMaterialProtocol const>(giver.get()),
                                  PxTimeContext(2.5)),
            [](auto* r) -> auto const& { return r->getMaterial(); }, giver->material, material);
        check(
            new PxGeometryRequest(PxUPtr<PxGeometryProtocol const>(giver.get()),
                                  PxGeometryContext(3.0)),
            [](auto* r) -> auto const& { return r->getGeometry(); }, giver->mesh, mesh);
        check(
            new PxShape2dRequest(PxUPtr<PxShape2dProtocol const>(giver.get()), PxTimeContext(3.5)),
            [](auto* r) -> auto const& { return r->getShape(); }, giver->shape, shape);
        check(
            new PxCurveRequest(PxUPtr<PxCurveProtocol const>(giver.get()), PxTimeContext(4.0)),
            [](auto* r) -> auto const& { return r->getCurve(); }, giver->curve, curve);
    });
    double time = 2.0;
    for (Seen const* s : {&scene, &material, &mesh, &shape, &curve}) {
        EXPECT_TRUE(s->sameObject);
        EXPECT_TRUE(s->sameInterval);
        EXPECT_EQ(s->time, time);
        EXPECT_TRUE(s->sameReference);
        EXPECT_TRUE(s->emptied);
        time += 0.5;
    }
    EXPECT_EQ(giver->placement, placement);
}

TEST_F(ProtocolRequests, AFailedQueryRaisesAtEveryRead) {
    auto giver = makeNode(new Giver(1));
    giver->fail = true;
    auto expectRaisesTwice = [](auto* request, auto read) {
        PxRequestPtr<std::remove_pointer_t<decltype(request)>> owner(request);
        engine().executeRequest(request, false);
        for (int i = 0; i < 2; ++i) {
            try {
                read(request);
                ADD_FAILURE() << "read " << i << " did not raise";
            } catch (ExBase const& e) {
                EXPECT_EQ(e.getReason(), "giver failed");
            }
        }
    };
    PxTimeContext const t(1.0);
    expectRaisesTwice(new PxObject3dRequest(giver, PxObject3dContext(1.0)),
                      [](auto* r) { r->getScene(); });
    expectRaisesTwice(new PxMaterialRequest(giver, t), [](auto* r) { r->getMaterial(); });
    expectRaisesTwice(new PxGeometryRequest(giver, PxGeometryContext(1.0)),
                      [](auto* r) { r->getGeometry(); });
    expectRaisesTwice(new PxShape2dRequest(giver, t), [](auto* r) { r->getShape(); });
    expectRaisesTwice(new PxCurveRequest(giver, t), [](auto* r) { r->getCurve(); });
    expectRaisesTwice(new PxCameraRequest(giver, t), [](auto* r) { r->getCamera(); });
    auto options = makeRC<PxInteractiveOptions>();
    expectRaisesTwice(new PxInteractiveRequest(giver, t, options, {}),
                      [](auto* r) { r->getInteractiveResult(); });
}

// A camera request calls its handler once, with itself, if the handler still
// lives when the request has run; a handler's failure stays with the handler:
// the request ends and is freed.
TEST_F(ProtocolRequests, ACameraRequestCallsItsHandlerOnlyWhileItLives) {
    auto giver = makeNode(new Giver(30, PxValidityInterval(0, 2)));
    struct Case {
        char const* name;
        bool gone;   // the handler is let go before the request runs
        bool throws; // the handler fails
        int calls;
    };
    Case const cases[] = {{"a handler gone", true, false, 0},
                          {"a live handler", false, false, 1},
                          {"a failing handler", false, true, 1}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::mutex m;
        std::vector<std::pair<PxCameraRequest const*, double>> calls;
        auto count = [&] {
            std::lock_guard g(m);
            return static_cast<int>(calls.size());
        };
        auto handler = makeRCCbHandler<PxCameraRequest const>([&](PxCameraRequest const& r) {
            double const fov = r.getCamera().getValue().fieldOfView;
            {
                std::lock_guard g(m);
                calls.push_back({&r, fov});
            }
            if (c.throws)
                throw PxEx::ExRequestFailed(__FILE__, __LINE__);
        });
        RCWeakPtr<PxCameraRequest::Handler> const weak(handler);
        if (c.gone)
            handler.reset();
        {
            auto const q = submitted(new PxCameraRequest(giver, PxTimeContext(1.0), weak));
            EXPECT_EQ(q->getCamera().getValue().fieldOfView, 30);
            EXPECT_EQ(q->getCamera().getValidityInterval(), PxValidityInterval(0, 2));
            ASSERT_TRUE(eventually([&] { return count() == c.calls; }));
            if (c.calls) { // compared while the request lives
                std::lock_guard g(m);
                EXPECT_EQ(calls[0].first, q.get());
                EXPECT_EQ(calls[0].second, 30);
            }
        }
        engine().sync();
        EXPECT_TRUE(eventually([] { return engineImp().getNbLiveRequests() == 0; }));
        EXPECT_EQ(count(), c.calls);
    }
}

// The options are the caller's as they were when the request was made; the
// result comes whole, with its interval; releasing the request destroys it, and
// with it the drawing it held.
TEST_F(ProtocolRequests, InteractiveQueriesCarryTheOptionsAsGiven) {
    auto giver = makeNode(new Giver(1, PxValidityInterval(2, 3)));
    auto options = makeRC<PxInteractiveOptions>();
    options->setHighlightThreshold(7.0f);
    int const drawingRefs = giver->drawing->getRefCount();
    bool sameDrawing = false, highlighted = false, released = false;
    GeRectangle<int> region;
    CoRgbaColorTyped<float> color;
    PxValidityInterval vi;
    onWorker([&] {
        auto* q = new PxInteractiveRequest(PxUPtr<PxInteractiveProtocol const>(giver.get()),
                                           PxTimeContext(6.0), options, {40.0f, 30.0f});
        options->setHighlightThreshold(9.0f);
        auto const& r = runChild(q)->getInteractiveResult();
        sameDrawing = r.getDrawing() == giver->drawing;
        region = r.getRegion();
        color = r.getColor();
        highlighted = r.isHighlighted();
        vi = r.getValidityInterval();
        engine().releaseRequest(q);
        released = giver->drawing->getRefCount() == drawingRefs;
    });
    EXPECT_EQ(giver->threshold, 7.0f);
    EXPECT_EQ(giver->lastTime, 6.0);
    EXPECT_TRUE(sameDrawing);
    EXPECT_EQ(region, GeRectangle<int>(0, 40, 0, 30));
    EXPECT_EQ(color, (CoRgbaColorTyped<float>{0, 1, 0, 1}));
    EXPECT_TRUE(highlighted);
    EXPECT_EQ(vi, PxValidityInterval(2, 3));
    EXPECT_TRUE(released);
    EXPECT_THROW((void)new PxInteractiveRequest(giver, PxTimeContext(0), nullptr, {}), ExNullPtr);
}

namespace {

// Logs what it is told, in order, and whether a state came while nothing else
// ran.
class ResultNode final : public PxResultProtocol {
public:
    ResultNode() : PxNode(PxNode::Init{"result"}) {}
    int getResultState() const override { return _state; }
    void setResultState(int state) override {
        _state = state;
        bool const alone = engine().isWorkerThreadSequential();
        log.push_back("state " + std::to_string(state) + (alone ? " alone" : " among others"));
    }
    void setLabel(int const& label) { log.push_back("label " + std::to_string(label)); }
    std::vector<std::string> log;

private:
    int _state = 0;
};

} // namespace

TEST_F(ProtocolRequests, ResultStatesArriveInSubmissionOrder) {
    auto node = makeNode(new ResultNode);
    std::vector<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        PxMutationRequest::submit(
            new PxSetRequest<ResultNode, int>(PxUPtr<ResultNode>(node), &ResultNode::setLabel, i));
        PxMutationRequest::submit(new PxResultRequest(PxUPtr<PxResultProtocol>(node), i % 2));
        expected.push_back("label " + std::to_string(i));
        expected.push_back("state " + std::to_string(i % 2) + " alone");
    }
    engine().sync();
    EXPECT_EQ(node->log, expected);
    EXPECT_EQ(node->getResultState(), 1);
    // Anything but 0 or 1 is refused before it reaches the engine.
    try {
        (void)new PxResultRequest(PxUPtr<PxResultProtocol>(node), 2);
        ADD_FAILURE() << "state 2 accepted";
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "state == 0 || state == 1");
    }
}

namespace {

// An image node whose every answer is tagged with n.
class TaggedImage final : public PxImageProtocol {
public:
    explicit TaggedImage(int tag) : PxNode(PxNode::Init{"image"}), n(tag) {}
    PxImageFormat getImageFormat() const override { return {IxPixelFormat(), Rational(n)}; }
    PxRODResult getImageROD(PxTimeStreamContext const&) const override {
        return {GeRectangle<float>(0, float(n), 0, 1), PxValidityInterval::FULL};
    }
    PxImageResult getImageResult(PxImageContext const&) const override {
        return {IxTile(), PxValidityInterval(0, n)};
    }
    bool isChainConnected() const override { return n % 2 == 1; }
    bool producesFullFrames() const override { return n % 2 == 0; }
    int getNbStreams() const override { return n; }
    int n;
};

void setChild(PxStrongHndl<PxPassThroughProtocol> const& through,
              PxStrongHndl<PxNode const> const& child) {
    PxMutationRequest::submit(
        new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(through), PxUPtr<PxNode const>(child)));
    engine().sync();
}

// Both kinds of pass-through of Protocol answer what their child answers, and
// follow a new child. tagOf(node) asks a node through the engine and gives its
// tag.
template <class Protocol, class Child, class TagOf>
void checkPassThrough(TagOf tagOf, int a, int b) {
    auto childA = makeNode(new Child(a));
    auto childB = makeNode(new Child(b));
    auto plain = makeNode(new PxPassThroughNode<Protocol>(PxNode::Init{"pass"},
                                                          PxStrongHndl<Protocol const>(childA)));
    auto collapsing = makeNode(new PxCollapsingPassThroughNode<Protocol>(
        PxNode::Init{"collapsing"}, PxStrongHndl<Protocol const>(childA)));
    for (PxStrongHndl<Protocol> const& through :
         {PxStrongHndl<Protocol>(plain), PxStrongHndl<Protocol>(collapsing)}) {
        EXPECT_EQ(tagOf(PxUPtr<Protocol const>(through)), a) << typeid(Protocol).name();
        setChild(PxStrongHndl<PxPassThroughProtocol>(
                     dynamic_cast<PxPassThroughProtocol*>(through.get())),
                 PxStrongHndl<PxNode const>(childB));
        EXPECT_EQ(tagOf(PxUPtr<Protocol const>(through)), b) << typeid(Protocol).name();
    }
    EXPECT_EQ(childA->getNbParents(), 0);
    EXPECT_EQ(childB->getNbParents(), 2);
}

} // namespace

TEST_F(ProtocolRequests, PassThroughsOfEveryProtocolForwardAndFollowTheirChild) {
    PxTimeContext const t(0.0);
    checkPassThrough<PxObject3dProtocol, Giver>(
        [&](auto n) {
            return submitted(new PxObject3dRequest(n, PxObject3dContext()))
                ->getScene()
                .getValue()
                ->getNbObjects();
        },
        2, 5);
    checkPassThrough<PxMaterialProtocol, Giver>(
        [&](auto n) {
            return int(
                submitted(new PxMaterialRequest(n, t))->getMaterial().getValue()->getShininess());
        },
        2, 5);
    checkPassThrough<PxShape2dProtocol, Giver>(
        [&](auto n) {
            return submitted(new PxShape2dRequest(n, t))->getShape().getValue()->getNbCtrlPoints();
        },
        2, 5);
    checkPassThrough<PxCameraProtocol, Giver>(
        [&](auto n) {
            return int(submitted(new PxCameraRequest(n, t))->getCamera().getValue().fieldOfView);
        },
        2, 5);
    // Every operation of the image protocol is forwarded.
    checkPassThrough<PxImageProtocol, TaggedImage>(
        [&](PxUPtr<PxImageProtocol const> n) {
            int const rate = int(
                submitted(new PxImageFormatRequest(n))->getImageFormat().getFrameRate().toDouble());
            int const rod =
                int(submitted(new PxImageRODRequest(n, {0.0, 0}))->getImageROD().getROD().xmax);
            int const tile =
                int(submitted(new PxImageTileRequest(n, PxImageContext(0.0, {0, 0}, 0, 0)))
                        ->getResult()
                        .getValidityInterval()
                        .getHigh());
            bool const odd = n->isChainConnected() && !n->producesFullFrames();
            EXPECT_EQ(rate, rod);
            EXPECT_EQ(rate, tile);
            EXPECT_EQ(odd, rate % 2 == 1);
            EXPECT_EQ(n->getNbStreams(), rate);
            return rate;
        },
        3, 4);
}

// The tool side lets nodes go on its own thread while the rewiring it sent a moment before runs
// on a worker: a node that left the graph keeps no link, and the rewiring fails nowhere.
TEST_F(ProtocolRequests, ANodeLetGoWhileAWorkerRewiresItKeepsNoLinks) {
    auto const childA = makeNode(new TaggedImage(1));
    auto const childB = makeNode(new TaggedImage(2));
    PxStrongHndl<PxNode const> const b(childB);
    auto makeThrough = [&] {
        return makeNode(new PxPassThroughNode<PxImageProtocol>(
            PxNode::Init{"pass"}, PxStrongHndl<PxImageProtocol const>(childA)));
    };
    // In order: let go, then rewired on a worker.
    auto through = makeThrough();
    auto asThrough = [](auto const& node) {
        return PxStrongHndl<PxPassThroughProtocol>(
            dynamic_cast<PxPassThroughProtocol*>(node.get()));
    };
    PxNodePtr<PxPassThroughProtocol> const kept(asThrough(through));
    through.reset();
    EXPECT_EQ(childA->getNbParents(), 0);
    PxUPtr<PxNode const> const bOnWorker(b);
    runAndWait(new FnRequest([&] { kept->setChild(bOnWorker); }));
    EXPECT_EQ(childA->getNbParents(), 0);
    EXPECT_EQ(childB->getNbParents(), 0);

    // Racing: each node is let go as soon as its rewiring is sent.
    LogCapture log;
    for (int i = 0; i < 2000; ++i) {
        auto t = makeThrough();
        PxMutationRequest::submit(new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(asThrough(t)),
                                                        PxUPtr<PxNode const>(b)));
        if (i % 2 == 1)
            std::this_thread::yield();
    }
    engine().sync();
    EXPECT_EQ(log.count({"failure"}), 0);
    EXPECT_EQ(childA->getNbParents(), 0);
    EXPECT_EQ(childB->getNbParents(), 0);
}

TEST(ProtocolValues, ValueHoldersRefuseWhatCannotBeDrawn) {
    PiGrid3D grid;
    EXPECT_EQ(grid.getSize(), 5000.0f);
    EXPECT_EQ(grid.getXStep(), 100);
    EXPECT_EQ(grid.getAxisColor(), (CoRgbaColorTyped<float>{0.65f, 0.44f, 0.0f, 0.75f}));
    EXPECT_THROW(grid.setXStep(0), ExAssertionFailed);
    EXPECT_THROW(grid.setYStep(-3), ExAssertionFailed);
    EXPECT_THROW(grid.setSize(std::nanf("")), ExAssertionFailed);
    EXPECT_THROW(grid.setMode(PiGrid3D::Mode(7)), ExAssertionFailed);
    EXPECT_THROW(PiGrid3D(PiGrid3D::AXES, 10.0f, 0, 1, {}, {}, {}), ExAssertionFailed);
    EXPECT_EQ(grid, PiGrid3D()); // nothing refused was kept

    PxInteractiveOptions options;
    PiGrid3D const coarse(PiGrid3D::AXES, 10.0f, 5, 6, {1, 0, 0, 1}, {}, {});
    options.setGrid(coarse);
    EXPECT_EQ(options.getGrid(), coarse);
    EXPECT_THROW(options.setHighlightThreshold(-1.0f), ExAssertionFailed);
    EXPECT_THROW(options.setRenderMode(PxInteractiveOptions::RenderMode(-1)), ExAssertionFailed);
    EXPECT_THROW(options.setHighlightMode(PxInteractiveOptions::HighlightMode(3)),
                 ExAssertionFailed);

    EXPECT_THROW(SdMaterial({}, {}, -1.0f), ExBase);
    SdScene scene;
    EXPECT_THROW(scene.addObject(nullptr, nullptr, {}), ExAssertionFailed);
    EXPECT_EQ(scene.getNbObjects(), 0);
}
