// Random asks for meshes from several outside threads, with cancellation, failures of the child
// and invalidations, all at once. A mesh is made at most once per key between two invalidations,
// never twice at the same time, and every ask ends.
//
// VN_STRESS_SECONDS (default 3) bounds the run.

#include "EngineTestSupport.h"

#include "ExBase.h"
#include "PxEx.h"
#include "PxGeometryCacheNode.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>

using namespace VnTest;
using namespace Vn;

namespace {

constexpr int kTimes = 6;
constexpr int kPlacements = 3;

class ExPlanned : public ExBase {
public:
    ExPlanned(char const* file, int line) : ExBase(file, line) { setReason("planned failure"); }
    VN_EX_CLONE_RAISE(ExPlanned)
};

// Changes only inside sequential requests, when no mesh is being made.
std::atomic<int> g_wave{0};

GeAffineMatrix3<float> placement(int i) {
    return GeAffineMatrix3<float>(1, 0, 0, 0, 1, 0, 0, 0, 1, static_cast<float>(i), 0, 0);
}

// Makes a mesh that names its key, slowly, noticing cancellation, and fails now and then.
class StressMesher final : public PxGeometryProtocol {
public:
    StressMesher() : PxNode(PxNode::Init{"StressMesher"}) {}

    PxGeometryResult getGeometry(PxGeometryContext const& context) const override {
        int const time = static_cast<int>(std::floor(context.getTime()));
        int const place = static_cast<int>(context.getPlacement()(0, 3));
        int const key = time * kPlacements + place;
        if (_inside[key].fetch_add(1) != 0)
            ++_overlaps;
        struct Leave {
            std::atomic<int>& n;
            ~Leave() { --n; }
        } leave{_inside[key]};
        unsigned const r = static_cast<unsigned>(++_calls) * 2654435761u;
        for (unsigned i = 0; i < r % 4; ++i) {
            engine().checkCancelled();
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        if ((r >> 8) % 8 == 0)
            throw ExPlanned(__FILE__, __LINE__);
        {
            std::lock_guard g(_m);
            if (++_made[{g_wave.load(), key}] > 1)
                ++_twice;
        }
        std::vector<GeVector3<float>> points{
            {static_cast<float>(time), static_cast<float>(place), 0.0f}};
        return PxGeometryResult(RCShdPtr<SdMesh const>(new SdMesh(std::move(points), {})),
                                PxValidityInterval(time, time + 1));
    }

    mutable std::atomic<int> _inside[kTimes * kPlacements] = {};
    mutable std::atomic<int> _overlaps{0};
    mutable std::atomic<int> _twice{0};
    mutable std::atomic<unsigned> _calls{0};
    mutable std::mutex _m;
    // (wave, key) to the meshes made.
    mutable std::map<std::pair<int, int>, int> _made;
};

constexpr PxRequest::RequestType kSequential{PxRequest::SEQUENTIAL, PxRequest::REFERENCED,
                                             PxRequest::CPU};

double envSeconds() {
    char const* s = std::getenv("VN_STRESS_SECONDS");
    double const v = s ? std::atof(s) : 0.0;
    return v > 0.0 ? v : 3.0;
}

class GeometryCacheStress : public EngineTest {
protected:
    int poolSize() const override { return 8; }
};

} // namespace

TEST_F(GeometryCacheStress, RandomAsksCancelsFailuresAndInvalidationsNeverHang) {
    unsigned const seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    engine().setMaxRunningWorkers(3);
    PxGeometryCacheNode::setLruSize(kTimes * kPlacements);
    PxStrongHndl<StressMesher> mesher(new StressMesher);
    PxNode::init(PxStrongHndl<PxNode>(mesher));
    PxStrongHndl<PxGeometryCacheNode> cache(new PxGeometryCacheNode(
        PxNode::Init{"cache"}, PxStrongHndl<PxGeometryProtocol const>(mesher)));
    PxNode::init(PxStrongHndl<PxNode>(cache));
    PxGeometryCacheNode const* rawCache = cache.get();

    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(envSeconds());
    auto timeUp = [&] {
        return std::chrono::steady_clock::now() > end;
    };
    std::atomic<bool> stop{false};
    std::atomic<long> done{0};
    std::atomic<long> cancelled{0};
    std::atomic<long> failed{0};
    std::atomic<int> wrongMesh{0};
    std::atomic<int> unexpected{0};

    // A hang fails the test with what is known, instead of running into a time-out.
    std::thread watchdog([&] {
        long last = -1;
        auto lastChange = std::chrono::steady_clock::now();
        while (!stop.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            long const now = done.load();
            if (now != last) {
                last = now;
                lastChange = std::chrono::steady_clock::now();
            } else if (std::chrono::steady_clock::now() - lastChange > std::chrono::seconds(30)) {
                auto const s = engineImp().getSnapshot();
                auto const c = rawCache->getCacheCounts();
                std::fprintf(stderr,
                             "geometry cache hung: %ld asks done, %d pending, running %d "
                             "blocked %d\n",
                             now, c.nbPending, s.nbRunningWorkers, s.nbBlockedWorkers);
                std::fflush(stderr);
                std::abort();
            }
        }
    });

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::minstd_rand rng(seed + static_cast<unsigned>(t) * 7919u);
            while (!timeUp()) {
                int const time = static_cast<int>(rng() % kTimes);
                int const place = static_cast<int>(rng() % kPlacements);
                // Equal contexts within the tolerance: they share one mesh being made.
                double const at = time + 0.5 + static_cast<double>(rng() % 3) * 2e-6;
                bool const cancel = rng() % 6 == 0;
                PxRequestPtr<PxGeometryRequest> ask(
                    new PxGeometryRequest(PxUPtr<PxGeometryProtocol const>(cache),
                                          PxGeometryContext(at, placement(place))));
                engine().executeRequest(ask.get(), false);
                if (cancel) {
                    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 100));
                    engine().cancelRequest(ask.get());
                }
                try {
                    auto const& points = ask->getGeometry().getValue()->getPoints();
                    if (points.size() != 1 || points[0].x != static_cast<float>(time) ||
                        points[0].y != static_cast<float>(place))
                        ++wrongMesh;
                } catch (PxEx::ExRequestCancelled const&) {
                    if (!cancel)
                        ++unexpected;
                    ++cancelled;
                } catch (PxEx::ExRequestFailed const&) {
                    ++failed;
                } catch (ExPlanned const&) {
                    ++failed;
                } catch (ExBase const& e) {
                    std::fprintf(stderr, "unexpected: %s\n", e.getDetailedReason().c_str());
                    ++unexpected;
                }
                ++done;
            }
        });
    }
    // Invalidations, over all time or over a part of it, each a new wave.
    threads.emplace_back([&] {
        std::minstd_rand rng(seed ^ 0x5bd1e995u);
        while (!timeUp()) {
            std::this_thread::sleep_for(std::chrono::microseconds(500 + rng() % 3000));
            double const low = static_cast<double>(rng() % kTimes);
            PxValidityInterval const vi =
                rng() % 2 ? PxValidityInterval::FULL : PxValidityInterval(low, low + 2.5);
            runAndWait(new FnRequest(
                [&, vi] {
                    ++g_wave;
                    rawCache->invalidate(vi, -2);
                },
                kSequential));
        }
    });
    for (auto& th : threads)
        th.join();
    engine().sync();
    stop = true;
    watchdog.join();

    std::printf("%ld asks, %ld cancelled, %ld failed, %d waves, %u child calls\n", done.load(),
                cancelled.load(), failed.load(), g_wave.load(), mesher->_calls.load());
    EXPECT_EQ(mesher->_twice.load(), 0);
    EXPECT_EQ(mesher->_overlaps.load(), 0);
    EXPECT_EQ(wrongMesh.load(), 0);
    EXPECT_EQ(unexpected.load(), 0);
    EXPECT_EQ(cache->getCacheCounts().nbPending, 0);
    EXPECT_GT(done.load(), 0);
}
