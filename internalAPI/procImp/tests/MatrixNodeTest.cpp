#include "EngineTestSupport.h"

#include "ExBase.h"
#include "PxAffineMatrixNode.h"
#include "PxCompositeMatrixNode.h"
#include "PxValueNode.h"
#include "RCCbHandler.h"

#include <cmath>
#include <random>

using namespace VnTest;
using namespace Vn;

namespace {

constexpr PxRequest::RequestType kSequential{PxRequest::SEQUENTIAL, PxRequest::REFERENCED,
                                             PxRequest::CPU};

// An animated value with an interval of its own.
class Input final : public PxAnimValueProtocol<double> {
public:
    Input(double v, PxValidityInterval const& vi) : PxNode(PxNode::Init{"Input"}), _r(v, vi) {}
    PxResult<double> getValue(PxTimeContext const&) const override { return _r; }

private:
    PxResult<double> _r;
};

using Value = PxAnimValueNode<double>;
using In = PxStrongHndl<PxAnimValueProtocol<double> const>;

In input(double v, PxValidityInterval const& vi = PxValidityInterval::FULL) {
    return In(makeNode(new Input(v, vi)));
}

GeVector3<float> apply(GeAffineMatrix3<float> const& m, float x, float y, float z) {
    return m.transformPoint({x, y, z});
}

void expectNear(GeVector3<float> const& p, float x, float y, float z) {
    EXPECT_NEAR(p.x, x, 1e-5f);
    EXPECT_NEAR(p.y, y, 1e-5f);
    EXPECT_NEAR(p.z, z, 1e-5f);
}

void expectNear(GeVector2<float> const& p, float x, float y) {
    EXPECT_NEAR(p.x, x, 1e-5f);
    EXPECT_NEAR(p.y, y, 1e-5f);
}

PxResult<GeAffineMatrix3<float>> matrixOf(PxStrongHndl<PxAffineMatrixProtocol const> const& n,
                                          double t = 0.0) {
    auto const q = submitted(
        new PxAffineMatrixRequest(PxUPtr<PxAffineMatrixProtocol const>(n), PxTimeContext(t)));
    return q->getMatrix();
}

// A 3D matrix node that translates by (x, 0, 0), with x held by a settable value node.
struct Translator {
    PxStrongHndl<Value> x;
    PxStrongHndl<PxAffineMatrixProtocol const> node;
};

Translator translator(double x) {
    Translator t;
    t.x = makeNode(new Value(PxNode::Init{"x"}, PxResult<double>(x)));
    In const zero = input(0.0);
    In const one = input(1.0);
    t.node = PxStrongHndl<PxAffineMatrixProtocol const>(
        makeNode(new PxAffineMatrixNode(PxNode::Init{"translator"}, In(t.x), zero, zero, zero, zero,
                                        zero, one, one, one, zero, zero, zero)));
    return t;
}

void setValue(PxStrongHndl<Value> const& v, double x) {
    PxMutationRequest::submit(
        new PxAnimValueSetRequest<double>(PxUPtr<Value>(v), PxResult<double>(x)));
    engine().sync();
}

} // namespace

using MatrixNodes = EngineTest;

TEST_F(MatrixNodes, ThreeDMovesToThePivotScalesRotatesXThenYThenZ) {
    using M = PxAffineMatrixNode;
    // Scale 2 along x and a quarter turn about z, around the pivot (1, 0, 0), then moved by 10.
    auto m = M::computeMatrix({10, 0, 0}, {0, 0, 90}, {2, 1, 1}, {1, 0, 0});
    expectNear(apply(m, 2, 0, 0), 11, 2, 0);
    expectNear(apply(m, 1, 0, 0), 11, 0, 0); // the pivot only moves by the position
    // About x first, then y: (0,1,0) -> (0,0,1) -> (1,0,0). The other order leaves (0,0,1).
    expectNear(apply(M::computeMatrix({}, {90, 90, 0}, {1, 1, 1}, {}), 0, 1, 0), 1, 0, 0);
    // About y before z: (1,0,0) -> (0,0,-1), which z leaves alone.
    expectNear(apply(M::computeMatrix({}, {0, 90, 90}, {1, 1, 1}, {}), 1, 0, 0), 0, 0, -1);
    // Scale before rotation: a quarter turn of a stretched x axis lands on a stretched y.
    expectNear(apply(M::computeMatrix({}, {0, 0, 90}, {3, 1, 1}, {}), 1, 0, 0), 0, 3, 0);
}

TEST_F(MatrixNodes, ScalesNearZeroAreClampedAndKeepTheirSign) {
    auto m3 = PxAffineMatrixNode::computeMatrix({}, {}, {0, -1e-12f, 1e-9f * 0.5f}, {});
    EXPECT_EQ(m3(0, 0), 1e-9f);
    EXPECT_EQ(m3(1, 1), -1e-9f);
    EXPECT_EQ(m3(2, 2), 1e-9f);
    auto const inv3 = m3.getInverse();
    EXPECT_NEAR(inv3(0, 0), 1e9f, 1e3f);
    EXPECT_NEAR(inv3(1, 1), -1e9f, 1e3f);
    // Just beyond the limit is kept as it is.
    EXPECT_EQ(PxAffineMatrixNode::computeMatrix({}, {}, {-2e-9f, 1, 1}, {})(0, 0), -2e-9f);

    auto s2 = PxAffineMatrix2Node::computeScaleShearRotationMatrix(0, {}, {0, -1e-12f});
    EXPECT_EQ(s2(0, 0), 1e-8f);
    EXPECT_EQ(s2(1, 1), -1e-8f);
    auto const inv2 = s2.getInverse();
    EXPECT_NEAR(inv2(1, 1), -1e8f, 1.0f);
    EXPECT_EQ(PxAffineMatrix2Node::computeScaleShearRotationMatrix(0, {}, {2e-8f, 1})(0, 0), 2e-8f);
}

TEST_F(MatrixNodes, TwoDScalesThenShearsThenRotatesAroundThePivot) {
    using M = PxAffineMatrix2Node;
    float const quarter = 1.5707963267948966f;
    // Scale before shear: (0,1) scaled by (2,1) stays, sheared by x += y gives (1,1).
    expectNear(M::computeMatrix({}, 0, {1, 0}, {2, 1}, {}).transformPoint({0, 1}), 1, 1);
    // And (1,0): scaled to (2,0); shear in y (y += x) gives (2,2).
    expectNear(M::computeMatrix({}, 0, {0, 1}, {2, 1}, {}).transformPoint({1, 0}), 2, 2);
    // Shear before rotation: (0,1) -> (1,1) -> turned a quarter (-1,1).
    expectNear(M::computeMatrix({}, quarter, {1, 0}, {1, 1}, {}).transformPoint({0, 1}), -1, 1);
    // Around the pivot (1,1), then moved by (5,0).
    auto const m = M::computeMatrix({5, 0}, quarter, {}, {2, 2}, {1, 1});
    expectNear(m.transformPoint({1, 1}), 6, 1);
    expectNear(m.transformPoint({2, 1}), 6, 3);
    // The middle part given directly gives the same.
    EXPECT_EQ(
        M::computeMatrix({5, 0}, M::computeScaleShearRotationMatrix(quarter, {}, {2, 2}), {1, 1}),
        m);
}

TEST_F(MatrixNodes, NodesReadTheirInputsAndNarrowTheValidity) {
    In const zero = input(0.0);
    In const one = input(1.0);
    auto node3 =
        makeNode(new PxAffineMatrixNode(PxNode::Init{"m3"}, input(1, {0, 10}), zero, zero, zero,
                                        zero, input(90, {2, 20}), one, one, one, zero, zero, zero));
    auto const r = matrixOf(PxStrongHndl<PxAffineMatrixProtocol const>(node3));
    EXPECT_EQ(r.getValue(),
              PxAffineMatrixNode::computeMatrix({1, 0, 0}, {0, 0, 90}, {1, 1, 1}, {}));
    EXPECT_EQ(r.getValidityInterval(), PxValidityInterval(2, 10));

    auto node2 =
        makeNode(new PxAffineMatrix2Node(PxNode::Init{"m2"}, zero, zero, input(45, {-5, 3}), zero,
                                         zero, input(2, {1, 8}), one, zero, zero));
    auto const q = submitted(
        new PxAffineMatrix2Request(PxUPtr<PxAffineMatrix2Protocol const>(node2), PxTimeContext(0)));
    EXPECT_EQ(q->getMatrix().getValidityInterval(), PxValidityInterval(1, 3));
    EXPECT_EQ(q->getMatrix().getValue(),
              PxAffineMatrix2Node::computeMatrix({}, static_cast<float>(M_PI / 4), {}, {2, 1}, {}));

    // Every input must be given.
    EXPECT_THROW(
        PxAffineMatrix2Node(PxNode::Init{"m2"}, zero, zero, zero, zero, In(), one, one, zero, zero),
        ExNullPtr);
}

TEST_F(MatrixNodes, GetComponentsGivesWhatTheMiddlePartIsMadeOf) {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<double> any(-50.0, 50.0);
    for (int round = 0; round < 40; ++round) {
        double v[9];
        for (double& x : v)
            x = any(rng);
        PxValidityInterval const narrow(any(rng) - 60.0, any(rng) + 60.0);
        auto node = makeNode(new PxAffineMatrix2Node(
            PxNode::Init{"m2"}, input(v[0]), input(v[1]), input(v[2], narrow), input(v[3]),
            input(v[4]), input(v[5]), input(v[6]), input(v[7]), input(v[8])));
        runAndWait(new FnRequest([&] {
            GeVector2<float> pos, shear, scale, pivot;
            float rot = 0;
            PxValidityInterval vi(-100, 100);
            PxTimeContext const ctx(0.5);
            node->getComponents(ctx, pos, rot, shear, scale, pivot, vi);
            EXPECT_EQ(vi, narrow.intersect(PxValidityInterval(-100, 100)));
            EXPECT_EQ(pos, (GeVector2<float>{float(v[0]), float(v[1])}));
            EXPECT_EQ(rot, float(v[2] * 0.017453292519943295));
            EXPECT_EQ(shear, (GeVector2<float>{float(v[3]), float(v[4])}));
            EXPECT_EQ(scale, (GeVector2<float>{float(v[5]), float(v[6])}));
            EXPECT_EQ(pivot, (GeVector2<float>{float(v[7]), float(v[8])}));
            GeAffineMatrix2<float> ssr;
            auto const r = node->getMatrix(ctx, ssr);
            EXPECT_EQ(ssr, PxAffineMatrix2Node::computeScaleShearRotationMatrix(rot, shear, scale));
            EXPECT_EQ(r.getValue(),
                      PxAffineMatrix2Node::computeMatrix(pos, rot, shear, scale, pivot));
            EXPECT_EQ(r.getValidityInterval(), narrow);
        }));
    }
}

TEST_F(MatrixNodes, CompositeIsGlobalAfterLocalAndANullSideIsTheOther) {
    using Composite = PxCompositeMatrixNode;
    using Matrix = PxStrongHndl<PxAffineMatrixProtocol const>;
    In const zero = input(0.0);
    In const two = input(2.0);
    // Local: move by 1 along x over [0, 5). Global: scale 2 over [3, 9).
    Matrix const local(makeNode(new PxAffineMatrixNode(PxNode::Init{"local"}, input(1, {0, 5}),
                                                       zero, zero, zero, zero, zero, input(1.0),
                                                       input(1.0), input(1.0), zero, zero, zero)));
    Matrix const global(
        makeNode(new PxAffineMatrixNode(PxNode::Init{"global"}, zero, zero, zero, zero, zero, zero,
                                        input(2, {3, 9}), two, two, zero, zero, zero)));

    auto const none =
        matrixOf(Matrix(makeNode(new Composite(PxNode::Init{"c"}, Matrix(), Matrix()))));
    EXPECT_TRUE(none.getValue().isIdentity());
    EXPECT_TRUE(none.getValidityInterval().isFull());

    auto const onlyLocal =
        matrixOf(Matrix(makeNode(new Composite(PxNode::Init{"c"}, local, Matrix()))));
    EXPECT_EQ(onlyLocal, matrixOf(local));
    auto const onlyGlobal =
        matrixOf(Matrix(makeNode(new Composite(PxNode::Init{"c"}, Matrix(), global))));
    EXPECT_EQ(onlyGlobal, matrixOf(global));

    auto const both = matrixOf(Matrix(makeNode(new Composite(PxNode::Init{"c"}, local, global))));
    // The point moves first, then is scaled: 0 -> 1 -> 2.
    expectNear(both.getValue().transformPoint({0, 0, 0}), 2, 0, 0);
    EXPECT_EQ(both.getValidityInterval(), PxValidityInterval(3, 5));
}

TEST_F(MatrixNodes, CompositeHandlersHearLocalChangesOnTheOneListAndGlobalOnBoth) {
    using Composite = PxCompositeMatrixNode;
    using Matrix = PxStrongHndl<PxAffineMatrixProtocol const>;
    Translator local = translator(1);
    Translator global = translator(10);
    auto composite = makeNode(new Composite(PxNode::Init{"c"}, local.node, global.node));
    PxWeakHndl<Composite> const weak(composite);

    std::atomic<int> all{0};
    std::atomic<int> globals{0};
    auto onAll = makeRCCbHandler<PxValidityInterval const>([&](auto&) { ++all; });
    auto onGlobal = makeRCCbHandler<PxValidityInterval const>([&](auto&) { ++globals; });
    Composite::addInvalidationCb(composite, onAll);
    Composite::addInvalidationCb(weak, onAll); // already there
    Composite::addGlobalInvalidationCb(weak, onGlobal);
    engine().sync();

    setValue(local.x, 2);
    EXPECT_EQ(all.load(), 1);
    EXPECT_EQ(globals.load(), 0);
    expectNear(matrixOf(Matrix(composite)).getValue().transformPoint({}), 12, 0, 0);

    setValue(global.x, 20);
    EXPECT_EQ(all.load(), 2);
    EXPECT_EQ(globals.load(), 1);

    // A new global side: the global handlers are told once, over all time.
    Translator other = translator(100);
    Composite::setGlobalMatrixNode(weak, other.node);
    engine().sync();
    EXPECT_EQ(all.load(), 3); // one wave per change
    EXPECT_EQ(globals.load(), 2);
    Composite::setGlobalMatrixNode(composite, other.node); // no change: no wave
    engine().sync();
    EXPECT_EQ(all.load(), 3);
    EXPECT_EQ(globals.load(), 2);
    expectNear(matrixOf(Matrix(composite)).getValue().transformPoint({}), 102, 0, 0);
    // The old global side is no longer a child: its changes reach nobody.
    int const before = all.load();
    setValue(global.x, 30);
    EXPECT_EQ(all.load(), before);
    EXPECT_EQ(globals.load(), 2);

    // Removed, or dead: not called any more.
    Composite::removeInvalidationCb(composite, onAll);
    onGlobal.reset();
    setValue(other.x, 1);
    EXPECT_EQ(all.load(), before);
    EXPECT_EQ(globals.load(), 2);

    // A composite that has gone: the weak setters do nothing.
    composite.reset();
    Composite::addInvalidationCb(weak, onAll);
    Composite::setLocalMatrixNode(weak, Matrix());
    engine().sync();
}

TEST_F(MatrixNodes, SettingTheSameSideAgainDoesNotInvalidate) {
    using Composite = PxCompositeMatrixNode;
    Translator local = translator(1);
    auto composite =
        makeNode(new Composite(PxNode::Init{"c"}, PxStrongHndl<PxAffineMatrixProtocol const>(),
                               PxStrongHndl<PxAffineMatrixProtocol const>()));
    std::atomic<int> all{0};
    auto onAll = makeRCCbHandler<PxValidityInterval const>([&](auto&) { ++all; });
    Composite::addInvalidationCb(composite, onAll);
    auto* target = composite.get();
    auto* side = local.node.get();
    runAndWait(new FnRequest(
        [&] {
            auto const matrix = PxUPtr<PxAffineMatrixProtocol const>(side);
            target->setLocalMatrixNode(matrix);
            EXPECT_EQ(all.load(), 1);
            target->setLocalMatrixNode(matrix);
            EXPECT_EQ(all.load(), 1);
            target->setLocalMatrixNode(PxUPtr<PxAffineMatrixProtocol const>());
            EXPECT_EQ(all.load(), 2);
        },
        kSequential));
    EXPECT_EQ(local.node->getNbParents(), 0);
    // The handler members belong to the workers.
    try {
        composite->addInvalidationCb(RCWeakPtr<Composite::InvalidationHandler>(onAll));
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "PxRequestMgr::getInstance().isWorkerThreadCurrent()");
    }
}

// The sides live as long as the composite, whoever still reads it after its last handle went; a
// side change queued before that leaves the graph as it is.
TEST_F(MatrixNodes, ACompositeWithoutHandlesKeepsItsSidesAndIgnoresLateChanges) {
    using Composite = PxCompositeMatrixNode;
    auto parent = makeNode(new Input(0.0, PxValidityInterval::FULL));
    Composite const* raw = nullptr;
    Translator late = translator(100);
    {
        Translator local = translator(1);
        Translator global = translator(10);
        auto composite = makeNode(new Composite(PxNode::Init{"c"}, local.node, global.node));
        parent->registerChild(PxNodePtr<PxNode const>(composite));
        raw = composite.get();
        // Queued behind a sequential request, the change runs after the last handle is gone.
        std::atomic<bool> go{false};
        PxRequestPtr<PxRequest> gate(
            new FnRequest([&] { eventually([&] { return go.load(); }); }, kSequential));
        engine().executeRequest(gate.get(), false);
        Composite::setLocalMatrixNode(composite, late.node);
        composite.reset();
        go = true;
        engine().waitRequest(gate.get());
        engine().sync();
    }
    // So is a change that was already under way on a worker when the handle went.
    PxUPtr<PxAffineMatrixProtocol const> const lateSide(late.node);
    runAndWait(new FnRequest([&] {
        const_cast<Composite*>(raw)->setLocalMatrixNode(lateSide);
        const_cast<Composite*>(raw)->setGlobalMatrixNode(lateSide);
    }));
    EXPECT_EQ(late.node->getNbParents(), 0);
    auto const q = submitted(new PxAffineMatrixRequest(
        PxUPtr<PxAffineMatrixProtocol const>::unchecked(raw), PxTimeContext(0.0)));
    expectNear(q->getMatrix().getValue().transformPoint({}), 11, 0, 0);
}
