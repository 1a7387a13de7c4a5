// The graph as the tool framework uses it: the graph's controller, open event classes, roles,
// element identity in multi-valued inputs, clones across graphs and the order of hooks.

#include "GraphTestSupport.h"

#include "ExBase.h"

namespace Vn::GraphTest {
namespace {

// What a composition's interface looks like to the library: a mix-in of a node controller.
class CompositionLike : public virtual PiNodeController {
public:
    virtual std::string describe() const = 0;
};

class CompositionController final : public CompositionLike, public PiGroupInterface {
public:
    std::string describe() const override { return "comp of " + nameOf(*this); }
    void send(PiNodeEvent const& e) { signalEvent(e); }
};

class FrameChanged final : public PiNodeEvent {
public:
    explicit FrameChanged(int f) : PiNodeEvent(Custom), frame(f) {}
    int frame;
};

struct EventCatcher final : CbHandler<PiNodeEvent> {
    void execute(PiNodeEvent const& e) override {
        auto const* f = dynamic_cast<FrameChanged const*>(&e);
        frames.push_back(f ? f->frame : -1);
    }
    std::vector<int> frames;
};

TEST_F(GraphFixture, TheGraphsControllerIsItsRootsAndCarriesSubclassedEvents) {
    RCShdPtr<PiGraph> made;
    int calls = 0;
    RCShdPtr<PiGraph> g = HoGraph::create("shot", "Composition", [&](PiGraph& gr) {
        ++calls;
        made = RCShdPtr<PiGraph>(&gr); // the factory may hold the graph and drop it
        made.reset();
        return RCShdPtr<PiNodeController>(new CompositionController);
    });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(g->getRole(), "Composition");
    auto* comp = dynamic_cast<CompositionLike*>(g->getController().get());
    ASSERT_NE(comp, nullptr);
    EXPECT_EQ(comp->describe(), "comp of shot");
    EXPECT_TRUE(PiGraphObject::areEqual(comp->getNode(), g->getRootNode()));
    // One holder: the root node. The graph hands out the same object each time.
    EXPECT_EQ(g->getController().get(), g->getRootNode()->getController().lock().get());

    EventCatcher catcher;
    g->getRootNode()->addEventHandler(&catcher);
    auto& cc = dynamic_cast<CompositionController&>(*g->getController());
    cc.send(FrameChanged(12));
    cc.send(PiNodeEvent(PiNodeEvent::Invalidation));
    EXPECT_EQ(catcher.frames, (std::vector<int>{12, -1}));

    g->setRole("Footage");
    EXPECT_EQ(g->getRole(), "Footage");
    EXPECT_EQ(graph->getRole(), "");
    // A plain graph has the factory's group controller.
    EXPECT_NE(dynamic_cast<PiGroupInterface*>(graph->getController().get()), nullptr);

    EXPECT_THROW(HoGraph::create("x", "", [](PiGraph&) { return RCShdPtr<PiNodeController>(); }),
                 ExBase);
    // A controller already driving a node is no graph's controller.
    auto taken = A->getController().lock();
    EXPECT_THROW(HoGraph::create("y", "", [&](PiGraph&) { return taken; }), ExBase);
}

} // namespace
} // namespace Vn::GraphTest
