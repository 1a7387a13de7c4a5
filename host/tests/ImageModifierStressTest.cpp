// Image modifiers come and go while their primary format changes and a viewer renders: the
// inputs that follow the primary are added, told and removed across threads, and every frame
// is a whole grade of the source.
#include "EvEventManager.h"
#include "HoGraph.h"
#include "HoImageNodes.h"
#include "HoRender.h"
#include "HoTools.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiImageModifier.h"
#include "PiSockets.h"
#include "PiValueInterface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>

using namespace Vn;

namespace {

constexpr int kW = 600; // two tiles: workers share the tools
constexpr int kH = 8;

template <class T>
void set(RCShdPtr<PiToolNode> const& n, std::string const& input, T v) {
    RCShdPtr<PiNode> value = n->findInput(input)->getConnectedOutput()->retrieveNode();
    rcCast<PiTypedValue<T>>(value->findValue(PiValueNode::VALUE_NAME))->set(v);
}

// Lift 0.1 and gain 0.8 on every component, within 8-bit rounding of the source and result.
bool graded(HoImage const& img) {
    if (img.width != kW || img.height != kH)
        return false;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            auto const p = HoTestPatternNode::colorAt((float(x) + 0.5f) / float(kW),
                                                      (float(y) + 0.5f) / float(kH), 0.0);
            auto const c = img.getColor(x, y);
            float const* pp = &p.r;
            float const* pc = &c.r;
            for (int k = 0; k < 4; ++k)
                if (!(std::fabs(pc[k] - (0.1f + pp[k] * 0.7f)) < 0.01f))
                    return false;
        }
    return true;
}

} // namespace

TEST(ImageModifierStress, ModifiersComeAndGoWhileThePrimaryFormatChanges) {
    InInitMgr::getInstance().initialize();
    {
        RCShdPtr<PiGraph> graph = HoGraph::create("comp");
        RCShdPtr<PiGroupNode> root = graph->getRootNode();
        auto const pattern = root->createToolNode(HoTools::testPattern(), "Pattern");
        set<int>(pattern, "Width", kW);
        set<int>(pattern, "Height", kH);
        auto const convert = root->createToolNode(HoTools::convert(), "Convert");
        convert->findInput("Source")->connect(pattern->findOutput("Output"));
        auto const makeGrade = [&](std::string const& name) {
            auto const g = root->createToolNode(HoTools::grade(), name);
            for (char const* c : {"Red", "Green", "Blue", "Alpha"}) {
                set<double>(g, std::string("Lift.") + c, 0.1);
                set<double>(g, std::string("Gain.") + c, 0.8);
            }
            g->findInput("Source")->connect(convert->findOutput("Output"));
            g->findInput("Mask")->connect(pattern->findOutput("Output"));
            // Masked, inverted at no intensity: the grade shows whole through the mix.
            set<bool>(g, "Mask Invert", true);
            set<double>(g, "Mask Intensity", 0.0);
            return g;
        };
        auto const viewedTool = makeGrade("Viewed");
        PxStrongHndl<PxImageProtocol const> const viewed(dynamic_cast<PxImageProtocol const*>(
            PiImageSocket<PiOutput>(viewedTool->findOutput("Output")).getNode().get()));

        std::atomic<bool> stop{false};
        std::atomic<int> frames{0}, wrong{0};
        std::thread viewer([&] {
            while (!stop.load()) {
                if (!graded(HoRenderer::renderFrame(viewed, 0.0)))
                    ++wrong;
                ++frames;
            }
        });

        std::mt19937 rng(11);
        PiCommandStack& stack = graph->getCommandStack();
        stack.clear();
        auto const depth = rcCast<PiTypedValue<int>>(convert->findValue("Depth"));
        int edits = 0;
        auto const until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
        while (std::chrono::steady_clock::now() < until || edits < 60) {
            switch (rng() % 4) {
            case 0:
                depth->set(depth->get() == IxPixelFormat::UINT8 ? IxPixelFormat::FLOAT32
                                                                : IxPixelFormat::UINT8);
                break;
            case 1: {
                PiUndoGuard guard(*graph, "Add Grade");
                auto const g = makeGrade("Grade" + std::to_string(edits));
                EXPECT_TRUE(graded(HoRenderer::renderFrame(
                    PxStrongHndl<PxImageProtocol const>(dynamic_cast<PxImageProtocol const*>(
                        PiImageSocket<PiOutput>(g->findOutput("Output")).getNode().get())),
                    0.0)));
                break;
            }
            case 2:
                if (stack.canUndo())
                    stack.undo();
                break;
            default:
                if (stack.canRedo())
                    stack.redo();
                break;
            }
            rcCast<PiImageModifier>(viewedTool->getController().lock())
                ->getConversionInfo(*viewedTool->findInput("Mask"));
            ++edits;
        }
        stop = true;
        viewer.join();
        EvEventManager::getInstance().flush();
        EXPECT_GT(frames.load(), 0);
        EXPECT_EQ(wrong.load(), 0) << "of " << frames.load() << " frames, " << edits << " edits";
    }
    InInitMgr::getInstance().finalize();
}
