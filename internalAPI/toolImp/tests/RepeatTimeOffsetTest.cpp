#include "../../procImp/tests/ImageTestGraph.h"

#include "ExBase.h"
#include "PiImageRepeatNode.h"
#include "PxPassThroughNode.h"
#include "TmTimeUtil.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <mutex>
#include <thread>

using namespace VnTest;
using namespace Vn;

namespace {

using Mode = TmTypes::RepeatMode;
constexpr double kEps = 5.208333333333334e-9;
constexpr double kNegInf = TmTimeUtil::getNegInfinity();
constexpr double kPosInf = TmTimeUtil::getPosInfinity();

// getCurrentTime over the range [0, 3) at one frame a second unless a case says otherwise.
struct TimeCase {
    Mode mode;
    double t;
    double want;
    double start = 0.0;
    double end = 3.0;
    double d = 1.0;
};

TEST(PiImageRepeatNodeTime, CurrentTimeOfEachMode) {
    double const q = std::ldexp(1.0, -11); // half a frame at 1024 frames a second
    std::vector<TimeCase> const cases = {
        {TmTypes::NO_REPEAT, -5.0, -5.0},
        {TmTypes::NO_REPEAT, 10.25, 10.25},
        // Hold: the first frame before the range, the last from its end on.
        {TmTypes::HOLD, -5.0, 0.0},
        {TmTypes::HOLD, 1.5, 1.5},
        {TmTypes::HOLD, 2.0, 2.0},
        {TmTypes::HOLD, 3.0, 2.0},
        {TmTypes::HOLD, kPosInf, 2.0},
        {TmTypes::HOLD, kNegInf, 0.0},
        // Loop: cycles start half a frame before the first frame.
        {TmTypes::LOOP, -0.5, -0.5},
        {TmTypes::LOOP, 2.4, 2.4},
        {TmTypes::LOOP, 2.5, -0.5},
        {TmTypes::LOOP, 4.0, 1.0},
        {TmTypes::LOOP, -1.0, 2.0},
        {TmTypes::LOOP, -3.5, -0.5},
        {TmTypes::LOOP, 31535999.5, -0.5},
        {TmTypes::LOOP, kNegInf + 0.5, 0.5},
        // Ping Pong: 0 1 2 | 2 1 0 | 0 1 2 ..., and backwards from the first frame.
        {TmTypes::PING_PONG, 0.0, 0.0},
        {TmTypes::PING_PONG, 2.0, 2.0},
        {TmTypes::PING_PONG, 3.0, 2.0},
        {TmTypes::PING_PONG, 4.0, 1.0},
        {TmTypes::PING_PONG, 5.0, 0.0},
        {TmTypes::PING_PONG, 6.0, 0.0},
        {TmTypes::PING_PONG, -1.0, 0.0},
        {TmTypes::PING_PONG, -2.0, 1.0},
        {TmTypes::PING_PONG, -3.0, 2.0},
        {TmTypes::PING_PONG, -4.0, 2.0},
        {TmTypes::PING_PONG, -0.5, -0.5},
        {TmTypes::PING_PONG, 31535999.5, -0.5},
        // Pass numbers far beyond 32 bits: three frames at 1024 frames a second, a year on.
        {TmTypes::PING_PONG, 3e7, 0.0, 0.0, 3 * 2 * q, 2 * q},
        {TmTypes::PING_PONG, 3e7 + 6 * q, 4 * q, 0.0, 3 * 2 * q, 2 * q},
        {TmTypes::PING_PONG, -3e7, 0.0, 0.0, 3 * 2 * q, 2 * q},
        {TmTypes::PING_PONG, -3e7 - 6 * q, 4 * q, 0.0, 3 * 2 * q, 2 * q},
        {TmTypes::LOOP, 3e7 + 2 * q, 2 * q, 0.0, 3 * 2 * q, 2 * q},
        // A range shorter than a frame lasts a frame.
        {TmTypes::LOOP, 7.25, 0.25, 0.0, 0.5},
        {TmTypes::HOLD, 7.25, 0.0, 0.0, 0.0},
    };
    for (TimeCase const& c : cases)
        EXPECT_EQ(PiImageRepeatNode::getCurrentTime(c.t, c.start, c.end, c.d, c.mode), c.want)
            << "mode " << c.mode << " t " << c.t << " range " << c.start << ".." << c.end;
}

TEST(PiImageRepeatNodeTime, RepeatsStayWithinTheRange) {
    // Three frames at 25 frames a second; every folded time lies in the range's half-frame
    // margins, and Ping Pong's end never reaches the frame after the last.
    double const d = 0.04, s = 0.4, e = 0.52;
    for (Mode m : {TmTypes::LOOP, TmTypes::PING_PONG, TmTypes::HOLD})
        for (int i = -2000; i <= 2000; ++i) {
            double const t = i * 0.01 + 0.005 * (i % 3);
            double const c = PiImageRepeatNode::getCurrentTime(t, s, e, d, m);
            EXPECT_GE(c, s - d * 0.5) << m << " " << t;
            EXPECT_LT(c, e - d * 0.5) << m << " " << t;
        }
}

TEST(PiImageRepeatNodeTime, BadArgumentsRaise) {
    EXPECT_THROW(PiImageRepeatNode::getCurrentTime(1.0, 0.0, 3.0, 0.0, TmTypes::LOOP), ExBase);
    EXPECT_THROW(PiImageRepeatNode::getCurrentTime(1.0, 0.0, 3.0, std::nan(""), TmTypes::LOOP),
                 ExBase);
    EXPECT_THROW(PiImageRepeatNode::getCurrentTime(1.0, 0.0, HUGE_VAL, 1.0, TmTypes::PING_PONG),
                 ExBase);
    EXPECT_THROW(PiImageRepeatNode::getCurrentTime(kPosInf * 2, 0.0, 3.0, 1.0, TmTypes::LOOP),
                 ExAssertionFailed);
    EXPECT_THROW(PiImageRepeatNode::getCurrentTime(1.0, 0.0, 3.0, 1.0, static_cast<Mode>(7)),
                 ExProgramAborted);
    EXPECT_THROW(TmTimeUtil::getFrameDuration(Rational(0)), ExBase);
    EXPECT_EQ(TmTimeUtil::getSecondsFromDtTime(3, Rational(30000, 1001)), 3 * 1001.0 / 30000.0);
    EXPECT_EQ(TmTimeUtil::getDtTimeFromSeconds(kPosInf, Rational(25)), 788400000);
}

// An image whose fill colour's red is the time it was asked at; each result holds for the frame
// of that time, or for ever.
class Clock final : public PxImageProtocol {
public:
    Clock(Rational rate, bool still)
        : PxNode(Init{"clock"}),
          _format(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32), rate), _still(still) {
    }
    PxImageFormat getImageFormat() const override { return _format; }
    PxRODResult getImageROD(PxTimeStreamContext const& c) const override {
        return {{0.0f, 4.0f, 0.0f, 4.0f}, validity(c.getTime())};
    }
    PxImageResult getImageResult(PxImageContext const& c) const override {
        return {allocateEmptyImageBuffer({static_cast<float>(c.getTime()), 0.0f, 0.0f, 1.0f}),
                validity(c.getTime())};
    }
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }

private:
    PxValidityInterval validity(double t) const {
        if (_still)
            return PxValidityInterval::FULL;
        double const d = TmTimeUtil::getFrameDuration(_format.getFrameRate());
        double const frame = std::floor(t / d + 0.5) * d;
        return {frame - d * 0.5, frame + d * 0.5};
    }
    PxImageFormat _format;
    bool _still;
};

// Records the invalidations that reach it.
class Watcher final : public PxImageNode {
public:
    explicit Watcher(PxStrongHndl<PxImageProtocol const> const& s)
        : PxNode(Init{"watcher"}), PxImageNode(Init{"watcher"}, s) {}
    PxImageResult getImageResult(PxImageContext const& c) const override {
        return getPrimary()->getImageResult(c);
    }
    void invalidateAndReinitialize(PxValidityInterval const& vi, PxUPtr<PxNode const> const&,
                                   int) override {
        std::lock_guard<std::mutex> lock(_mutex);
        _seen.push_back(vi);
    }
    std::vector<PxValidityInterval> take() {
        std::lock_guard<std::mutex> lock(_mutex);
        return std::exchange(_seen, {});
    }

private:
    std::mutex _mutex;
    std::vector<PxValidityInterval> _seen;
};

struct Graph {
    PxStrongHndl<PxImageProtocol const> clock;
    PxStrongHndl<PxAnimValueNode<int>> in, out, mode;
    PxStrongHndl<PxAnimValueNode<bool>> lock;
    PxStrongHndl<PxImageProtocol const> repeat;
    PxStrongHndl<Watcher> watcher;
};

Graph repeatGraph(Mode mode, int in, int out, bool lock = false, bool still = false,
                  Rational rate = Rational(1)) {
    Graph g;
    g.clock = makeNode(new Clock(rate, still));
    auto intValue = [](int v) {
        return makeNode(new PxAnimValueNode<int>({"int"}, v));
    };
    g.in = intValue(in);
    g.out = intValue(out);
    g.mode = intValue(mode);
    g.lock = makeNode(new PxAnimValueNode<bool>({"bool"}, lock));
    g.repeat = makeNode(new PiImageRepeatNode({"repeat"}, g.clock, g.in, g.out, g.mode, g.lock));
    g.watcher = makeNode(new Watcher(g.repeat));
    g.watcher->registerChild(PxNodePtr<PxNode const>(g.repeat));
    return g;
}

PxImageResult at(PxStrongHndl<PxImageProtocol const> const& n, double t) {
    return tileOf(n, PxImageContext(t, {0, 0}, 0, 0));
}

template <class T>
void set(PxStrongHndl<PxAnimValueNode<T>> const& node, T v) {
    PxMutationRequest::submit(
        new PxAnimValueSetRequest<T>(PxUPtr<PxAnimValueNode<T>>(node), PxResult<T>(v)));
    engine().sync();
}

class RepeatNodeTest : public EngineTest {};

TEST_F(RepeatNodeTest, ChildTimeAndValidityForEveryModeAndTime) {
    for (Mode m : {TmTypes::HOLD, TmTypes::LOOP, TmTypes::PING_PONG, TmTypes::NO_REPEAT})
        for (bool lock : {false, true}) {
            Graph const g = repeatGraph(m, 2, 6, lock);
            for (int i = -40; i <= 60; ++i) {
                double const t = i * 0.25;
                PxImageResult const r = at(g.repeat, t);
                PxValidityInterval const vi = r.getValidityInterval();
                EXPECT_TRUE(vi.contains(t)) << m << " lock " << lock << " t " << t << " ["
                                            << vi.getLow() << ", " << vi.getHigh() << ")";
                bool const lockedOut = m == TmTypes::NO_REPEAT && lock && (t < 2.0 || t > 5.0);
                if (lockedOut) {
                    EXPECT_EQ(r.getFillColor(), (CoRgbaColorTyped<float>{})) << t;
                    continue;
                }
                double const c = PiImageRepeatNode::getCurrentTime(t, 2.0, 6.0, 1.0, m);
                EXPECT_EQ(r.getFillColor().r, static_cast<float>(c)) << m << " t " << t;
                // Not too wide either: wherever it claims to hold, the child shows the same
                // frame (the clock's frames are one second long). Ends are probed a nanosecond
                // inside: time arithmetic moves them by an ulp.
                double const low = std::max(vi.getLow(), t - 20.0);
                double const high = std::min(vi.getHigh(), t + 20.0);
                for (double u : {low + 1e-9, (low + high) * 0.5, high - 1e-9}) {
                    double const cu = PiImageRepeatNode::getCurrentTime(u, 2.0, 6.0, 1.0, m);
                    EXPECT_EQ(std::floor(cu + 0.5), std::floor(c + 0.5))
                        << m << " lock " << lock << " t " << t << " u " << u;
                }
            }
        }
}

TEST_F(RepeatNodeTest, StillChildrenAndSingleFramesHoldForEver) {
    for (Mode m : {TmTypes::HOLD, TmTypes::LOOP, TmTypes::PING_PONG}) {
        Graph const still = repeatGraph(m, 2, 6, false, true);
        EXPECT_TRUE(at(still.repeat, 13.0).getValidityInterval().isFull()) << m;
        Graph const single = repeatGraph(m, 4, 5);
        PxImageResult const r = at(single.repeat, -7.3);
        EXPECT_TRUE(r.getValidityInterval().isFull()) << m;
        EXPECT_NEAR(r.getFillColor().r, 4.0f, 0.5f) << m;
    }
    // Hold widens to the infinity on the side of the held frame only.
    Graph const hold = repeatGraph(TmTypes::HOLD, 2, 6);
    EXPECT_EQ(at(hold.repeat, -3.0).getValidityInterval(), PxValidityInterval(kNegInf, 2.5));
    EXPECT_EQ(at(hold.repeat, 9.0).getValidityInterval(), PxValidityInterval(4.5, kPosInf));
    EXPECT_EQ(at(hold.repeat, 3.0).getValidityInterval(), PxValidityInterval(2.5, 3.5));
    // Loop: the frame's validity carried to the parent's cycle.
    Graph const loop = repeatGraph(TmTypes::LOOP, 2, 6);
    PxValidityInterval const v = at(loop.repeat, 7.0).getValidityInterval();
    EXPECT_NEAR(v.getLow(), 6.5, 1e-9);
    EXPECT_NEAR(v.getHigh(), 7.5, 1e-9);
}

TEST_F(RepeatNodeTest, LockedNoRepeatIsEmptyOutsideTheRangeUpToInfinity) {
    Graph const g = repeatGraph(TmTypes::NO_REPEAT, 2, 6, true);
    PxImageResult const before = at(g.repeat, 1.0);
    EXPECT_TRUE(before.getPixelRegion().isEmpty());
    EXPECT_EQ(before.getValidityInterval(), PxValidityInterval(kNegInf, 2.0 - kEps));
    PxImageResult const after = at(g.repeat, 8.0);
    EXPECT_EQ(after.getValidityInterval(), PxValidityInterval(5.0 + kEps, kPosInf));
    auto const rod = submitted(
        new PxImageRODRequest(PxUPtr<PxImageProtocol const>(g.repeat), PxTimeStreamContext(8, 0)));
    EXPECT_TRUE(rod->getImageROD().getROD().isEmpty());
}

struct InvalidationCase {
    Mode mode;
    bool lock;
    PxValidityInterval sent;
    std::vector<PxValidityInterval> received;
};

TEST_F(RepeatNodeTest, ChildInvalidationsReachTheParentTimesThatShowThem) {
    // The range is frames 2..5 at one a second: R = [2 - eps, 5 + eps].
    PxValidityInterval const full = PxValidityInterval::FULL;
    std::vector<InvalidationCase> const cases = {
        {TmTypes::LOOP, false, {3.0, 3.5}, {full}},
        {TmTypes::LOOP, false, {10.0, 11.0}, {}},
        {TmTypes::PING_PONG, false, {1.0, 2.5}, {full}},
        {TmTypes::PING_PONG, false, {-4.0, 1.0}, {}},
        {TmTypes::HOLD, false, {3.0, 3.5}, {{3.0, 3.5}}},
        {TmTypes::HOLD, false, {1.0, 2.5}, {{kNegInf, 2.5}}},
        {TmTypes::HOLD, false, {3.5, 10.0}, {{3.5, kPosInf}}},
        {TmTypes::HOLD, false, {10.0, 11.0}, {}},
        {TmTypes::NO_REPEAT, false, {10.0, 11.0}, {{10.0, 11.0}}},
        {TmTypes::NO_REPEAT, true, {10.0, 11.0}, {}},
        {TmTypes::NO_REPEAT, true, {3.0, 11.0}, {{3.0, 5.0 + kEps}}},
    };
    for (InvalidationCase const& c : cases) {
        Graph const g = repeatGraph(c.mode, 2, 6, c.lock);
        g.clock->invalidate(c.sent, 0);
        EXPECT_EQ(g.watcher->take(), c.received)
            << c.mode << " lock " << c.lock << " [" << c.sent.getLow() << ", " << c.sent.getHigh()
            << ")";
    }
}

TEST_F(RepeatNodeTest, RangeAndModeChangesInvalidateOnlyWhatChanges) {
    Graph const hold = repeatGraph(TmTypes::HOLD, 2, 6);
    set(hold.in, 1);
    EXPECT_EQ(hold.watcher->take(), (std::vector<PxValidityInterval>{{1.0 - kEps, 2.0 - kEps}}));
    set(hold.in, 1);
    EXPECT_TRUE(hold.watcher->take().empty());
    set(hold.out, 9);
    EXPECT_EQ(hold.watcher->take(), (std::vector<PxValidityInterval>{{5.0 + kEps, 8.0 + kEps}}));
    // Past the out time: the ranges do not meet, and the range lasts the in frame until the
    // out time follows.
    set(hold.in, 20);
    EXPECT_EQ(hold.watcher->take(), std::vector<PxValidityInterval>{PxValidityInterval::FULL});
    EXPECT_EQ(at(hold.repeat, 0.0).getFillColor().r, 20.0f);
    set(hold.out, 25);
    EXPECT_EQ(hold.watcher->take(), (std::vector<PxValidityInterval>{{20.0 + kEps, 24.0 + kEps}}));
    EXPECT_EQ(at(hold.repeat, 0.0).getFillColor().r, 20.0f);

    Graph const loop = repeatGraph(TmTypes::LOOP, 2, 6);
    set(loop.out, 7);
    EXPECT_EQ(loop.watcher->take(), std::vector<PxValidityInterval>{PxValidityInterval::FULL});
    Graph const free = repeatGraph(TmTypes::NO_REPEAT, 2, 6);
    set(free.out, 7);
    EXPECT_TRUE(free.watcher->take().empty());

    // A new mode changes only the times outside the range.
    Graph const g = repeatGraph(TmTypes::HOLD, 2, 6);
    set(g.mode, static_cast<int>(TmTypes::LOOP));
    EXPECT_EQ(g.watcher->take(),
              (std::vector<PxValidityInterval>{{kNegInf, 2.0 - kEps}, {5.0 + kEps, kPosInf}}));
    EXPECT_EQ(at(g.repeat, 6.0).getFillColor().r, 2.0f);
    set(g.lock, true);
    EXPECT_TRUE(g.watcher->take().empty());
}

TEST_F(RepeatNodeTest, FramelessRatesRaiseAndRangesEndingEarlyLastAFrame) {
    Graph const noFrames = repeatGraph(TmTypes::LOOP, 2, 6, false, false, Rational(0));
    EXPECT_THROW(at(noFrames.repeat, 1.0), ExBase);
    // An out frame not after the in frame: the in frame alone, held for ever.
    for (Mode m : {TmTypes::HOLD, TmTypes::LOOP, TmTypes::PING_PONG})
        for (int out : {4, 3, -50}) {
            Graph const g = repeatGraph(m, 4, out);
            for (double t : {-9.0, 3.9, 4.2, 17.0}) {
                PxImageResult const r = at(g.repeat, t);
                EXPECT_TRUE(r.getValidityInterval().isFull()) << m << " out " << out << " t " << t;
                EXPECT_NEAR(r.getFillColor().r, 4.0f, 0.5f) << m << " out " << out << " t " << t;
            }
        }
    Graph const locked = repeatGraph(TmTypes::NO_REPEAT, 4, 4, true);
    EXPECT_EQ(at(locked.repeat, 4.0).getFillColor().r, 4.0f);
    EXPECT_TRUE(at(locked.repeat, 6.0).getPixelRegion().isEmpty());
}

TEST_F(RepeatNodeTest, ANodeBuiltOnTheToolSideReadsItsInputsAfterTheEditsBeforeIt) {
    // An edit that wires the in-time waits behind a sequential request held open. The node built
    // meanwhile on another thread reads its inputs on a worker, after that edit, not while a
    // worker may be rewiring them.
    Graph const g = repeatGraph(Mode(0), 0, 8);
    auto const placeholder = makeNode(new PxAnimValueNode<int>({"int"}, 0));
    auto const wired = makeNode(new PxAnimValueNode<int>({"int"}, 5));
    auto const face =
        makeNode(new PxPassThroughNode<PxAnimValueProtocol<int>>({"face"}, placeholder));
    std::promise<void> open;
    std::shared_future<void> const opened = open.get_future().share();
    PxRequestPtr<FnRequest> const hold(new FnRequest(
        [opened] { opened.wait(); },
        PxRequest::RequestType(PxRequest::SEQUENTIAL, PxRequest::REFERENCED, PxRequest::CPU)));
    engine().executeRequest(hold.get(), false);
    PxMutationRequest::submit(
        new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(face), PxUPtr<PxNode const>(wired)));
    std::atomic<bool> built{false};
    PxStrongHndl<PxImageProtocol const> repeat;
    std::thread builder([&] {
        repeat = makeNode(new PiImageRepeatNode({"repeat"}, g.clock, face, g.out, g.mode, g.lock));
        built = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(built) << "the node read its inputs before the edit queued ahead of it";
    open.set_value();
    builder.join();
    engine().waitRequest(hold.get());
    // Mode 0 holds the first frame before the range: the wired in-time, 5.
    EXPECT_EQ(at(repeat, 0.0).getTile().getFillColor().r, 5.0f);
}

TEST_F(RepeatNodeTest, AnUnknownModeFailsEvaluationNotTheWave) {
    EXPECT_THROW(repeatGraph(static_cast<Mode>(9), 2, 6), ExBase);
    Graph const g = repeatGraph(TmTypes::LOOP, 2, 6);
    std::vector<PxValidityInterval> const full{PxValidityInterval::FULL};
    set(g.mode, 7);
    EXPECT_EQ(g.watcher->take(), full);
    for (double t : {1.0, 3.0, 9.0})
        try {
            at(g.repeat, t);
            ADD_FAILURE() << "an unknown mode was evaluated at " << t;
        } catch (ExBase const& e) {
            EXPECT_NE(e.getReason().find("7 is no repeat mode"), std::string::npos)
                << e.getReason();
        }
    set(g.mode, static_cast<int>(TmTypes::HOLD));
    EXPECT_EQ(g.watcher->take(), full);
    EXPECT_EQ(at(g.repeat, 9.0).getFillColor().r, 5.0f);
}

TEST_F(RepeatNodeTest, PoliciesAreRegisteredAtStart) {
    PiEnumPolicy const& p = *PiImageRepeatNode::getRepeatModeInputPolicy();
    EXPECT_EQ(p.getDefaultValue(), TmTypes::NO_REPEAT);
    EXPECT_FALSE(p.isAnimatable());
    EXPECT_EQ(p.getLabel(TmTypes::PING_PONG), "Ping Pong");
    EXPECT_EQ(p.getValue("Hold"), TmTypes::HOLD);
    EXPECT_THROW(p.getLabel(4), ExBase);
    EXPECT_EQ(PiRepeatModeInputPolicy(TmTypes::LOOP).getDefaultValue(), TmTypes::LOOP);
    EXPECT_FALSE(PiTimeOffsetInputPolicy::getInstance().isHidden());
    EXPECT_TRUE(PiHiddenTimeOffsetInputPolicy::getInstance().isHidden());
    EXPECT_EQ(PiTimeOffsetInputPolicy::getInstance().getMin(), -31536000);
    EXPECT_EQ(PiTimeOffsetInputPolicy::getInstance().clamp(40000000), 31536000);
}

TEST_F(RepeatNodeTest, TimeOffsetShiftsTimesButNotInfinities) {
    PxStrongHndl<PxImageProtocol const> const clock = makeNode(new Clock(Rational(25), false));
    auto const frames = makeNode(new PxAnimValueNode<int>({"offset"}, 2));
    auto const offset =
        makeNode(new PiImageTimeOffsetNode({"offset"}, clock, PxStrongHndl<PxNode const>(frames)));
    PxStrongHndl<Watcher> const watcher = makeNode(new Watcher(offset));
    watcher->registerChild(PxNodePtr<PxNode const>(offset));
    EXPECT_DOUBLE_EQ(offset->getOffsetSeconds(), 0.08);
    PxImageResult const r = at(offset, 1.0);
    EXPECT_FLOAT_EQ(r.getFillColor().r, 1.08f);
    EXPECT_NEAR(r.getValidityInterval().getLow(), 0.98, 1e-9);
    EXPECT_NEAR(r.getValidityInterval().getHigh(), 1.02, 1e-9);

    clock->invalidate({1.0, 2.0}, 0);
    clock->invalidate({kNegInf, 1.0}, 0);
    clock->invalidate(PxValidityInterval::FULL, 0);
    std::vector<PxValidityInterval> const seen = watcher->take();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_NEAR(seen[0].getLow(), 0.92, 1e-12);
    EXPECT_NEAR(seen[0].getHigh(), 1.92, 1e-12);
    EXPECT_EQ(seen[1].getLow(), kNegInf);
    EXPECT_NEAR(seen[1].getHigh(), 0.92, 1e-12);
    EXPECT_EQ(seen[2], PxValidityInterval::FULL);

    // A repeat under an offset keeps its infinite validity.
    Graph const g = repeatGraph(TmTypes::HOLD, 2, 6);
    auto const shifted =
        makeNode(new PiImageTimeOffsetNode({"offset"}, g.repeat, PxStrongHndl<PxNode const>(g.in)));
    EXPECT_EQ(at(shifted, 20.0).getValidityInterval(), PxValidityInterval(2.5, kPosInf));

    set(frames, -25);
    EXPECT_DOUBLE_EQ(offset->getOffsetSeconds(), -1.0);
    EXPECT_FLOAT_EQ(at(offset, 3.0).getFillColor().r, 2.0f);
}

} // namespace
