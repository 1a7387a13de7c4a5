// Viewers render a blur at different times while its source is rebuilt under them: the tiles the
// blur keeps of its source are shared across threads, told apart by time and dropped on every
// edit, so each frame is the blur of its own time.
#include "EvEventManager.h"
#include "HoGraph.h"
#include "HoRender.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiSockets.h"
#include "PiValue.h"
#include "PxConfig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>

using namespace Vn;

namespace {

template <class T>
void set(RCShdPtr<PiToolNode> const& n, std::string const& input, T v) {
    RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
    rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
}

// Within the 8-bit rounding the edits switch on and off.
bool same(HoImage const& a, HoImage const& b) {
    if (a.width != b.width || a.height != b.height)
        return false;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x) {
            auto const p = a.getColor(x, y), q = b.getColor(x, y);
            float const* pp = &p.r;
            float const* pq = &q.r;
            for (int k = 0; k < 4; ++k)
                if (!(std::fabs(pp[k] - pq[k]) < 0.01f))
                    return false;
        }
    return true;
}

} // namespace

TEST(BlurStress, ViewersAtDifferentTimesSeeTheirOwnFrameThroughEdits) {
    InInitMgr::getInstance().initialize();
    {
        RCShdPtr<PiGraph> graph = HoGraph::create("comp");
        RCShdPtr<PiGroupNode> root = graph->getRootNode();
        auto const pattern = root->createToolNode(HoTools::testPattern(), "Pattern");
        // Three tiles across and two down: every blur tile reads its neighbours'.
        set<int>(pattern, "Width", 2 * PxConfig::getTileSizeX() + 40);
        set<int>(pattern, "Height", PxConfig::getTileSizeY() + 8);
        auto const convert = root->createToolNode(HoTools::convert(), "Convert");
        convert->findInput("Source")->connect(pattern->findOutput("Output"));
        auto const blur = root->createToolNode(HoTools::blur(), "Blur");
        blur->findInput("Source")->connect(convert->findOutput("Output"));
        PxStrongHndl<PxImageProtocol const> const viewed(dynamic_cast<PxImageProtocol const*>(
            PiImageSocket<PiOutput>(blur->findOutput("Output")).getNode().get()));

        double const times[] = {0.0, 0.5, 1.0};
        HoImage want[3];
        for (int t = 0; t < 3; ++t)
            want[t] = HoRenderer::renderFrame(viewed, times[t]);
        ASSERT_FALSE(same(want[0], want[1]));

        std::atomic<bool> stop{false};
        std::atomic<int> frames{0}, wrong{0};
        auto view = [&](unsigned seed) {
            std::mt19937 rng(seed);
            while (!stop.load()) {
                int const t = static_cast<int>(rng() % 3);
                if (!same(HoRenderer::renderFrame(viewed, times[t]), want[t]))
                    ++wrong;
                ++frames;
            }
        };
        std::thread first(view, 1u), second(view, 2u);

        // Each edit rebuilds the source and drops the kept tiles; the pixels stay within
        // rounding, so a frame that differs more shows a tile of another time.
        auto const depth = rcCast<PiTypedValue<int>>(convert->findValue("Depth"));
        int edits = 0;
        auto const until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
        while (std::chrono::steady_clock::now() < until || edits < 40) {
            depth->set(depth->get() == IxPixelFormat::UINT8 ? IxPixelFormat::FLOAT32
                                                            : IxPixelFormat::UINT8);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ++edits;
        }
        stop = true;
        first.join();
        second.join();
        EvEventManager::getInstance().flush();
        EXPECT_GT(frames.load(), 0);
        EXPECT_EQ(wrong.load(), 0) << "of " << frames.load() << " frames, " << edits << " edits";
    }
    InInitMgr::getInstance().finalize();
}
