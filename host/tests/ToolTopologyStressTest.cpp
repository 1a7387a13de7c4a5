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

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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
