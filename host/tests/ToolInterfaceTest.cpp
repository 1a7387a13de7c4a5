// The tool interface on real tool graphs: input policies and their resolution, primary sockets,
// presets, resets to the policies' defaults, and the processing nodes that the factories make
// for each socket type, read through the engine.
#include "ExBase.h"
#include "HoGraph.h"
#include "HoToolRegistry.h"
#include "InPackageInit.h"
#include "PiCommandStack.h"
#include "PiGraphUtils.h"
#include "PiImageInputPolicy.h"
#include "PiNode.h"
#include "PiProcNodeFactory.h"
#include "PiToolInterface.h"
#include "PiToolInterfaceImp.h"
#include "PiToolPredicates.h"
#include "PiToolProtocols.h"
#include "PiValueProcNodes.h"
#include "PxCameraProtocol.h"
#include "PxGeometryProtocol.h"
#include "PxImageProtocol.h"
#include "PxMaterialProtocol.h"
#include "PxObject3dProtocol.h"
#include "PxRequestMgr.h"
#include "PxShape2dProtocol.h"
#include "PxValueNode.h"
#include "XmlDocument.h"

#include "ToolGraphFixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

using namespace Vn;

namespace {

using Node = PiProcNodeFactory::Node;

class MixProtocol final : public PiToolProtocolImp {
public:
    explicit MixProtocol(bool withPrimary = true)
        : PiToolProtocolImp("Mix", "Filter", "1.0"), _withPrimary(withPrimary) {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Layers", PiSocketType::IMAGE, {}, PiSocketType::MULTIVALUED);
        d.require("Gain", PiSocketType::DOUBLE, PiRangeInputPolicy<double>::create(0, 10, 1));
        d.require("Mode", PiSocketType::INT,
                  RCShdPtr<PiInputPolicy const>(
                      new PiEnumPolicy({{0, "Over"}, {1, "Add"}, {4, "Screen"}}, false, 1)));
        d.require("Offset", PiSocketType::DOUBLE);
        d.require("Label", PiSocketType::STRING);
        d.require("Duration", PiSocketType::TIME);
        PiStructuredPolicyDescriptor& point = d.requireStructured("Point");
        point.require("X", PiSocketType::DOUBLE, PiRangeInputPolicy<double>::create(-1, 1, 0.5));
        point.require("Y", PiSocketType::DOUBLE);
        d.require("Outline", PiSocketType::SHAPE2D);
        d.require("Camera", PiSocketType::CAMERA);
        d.produces("Output", PiSocketType::IMAGE);
        d.produces("Mesh", PiSocketType::GEOMETRY);
    }
    std::string getPrimaryInput() const override { return _withPrimary ? "Layers" : ""; }
    std::string getPrimaryOutput() const override { return _withPrimary ? "Output" : ""; }

private:
    bool _withPrimary;
};

RCShdPtr<PiTool const> tool(PiToolProtocol* p) {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}

// A number that changes every second: `scale` times the whole seconds, valid for that second.
template <class T>
class Ramp final : public PxAnimValueProtocol<T> {
public:
    explicit Ramp(T scale) : PxNode(PxNode::Init{"Ramp"}), _scale(scale) {}
    PxResult<T> getValue(PxTimeContext const& c) const override {
        double const s = std::floor(c.getTime());
        return PxResult<T>(static_cast<T>(_scale * s), PxValidityInterval(s, s + 1));
    }

private:
    T _scale;
};

template <class T>
PxResult<T> read(Node const& n, double t) {
    auto const* typed = dynamic_cast<PxAnimValueProtocol<T> const*>(n.get());
    EXPECT_NE(typed, nullptr);
    auto* q = new PxAnimValueRequest<T>(
        PxUPtr<PxAnimValueProtocol<T> const>(PxStrongHndl<PxAnimValueProtocol<T> const>(typed)),
        PxTimeContext(t));
    PxRequestPtr<PxAnimValueRequest<T>> p(q);
    PxRequestMgr::getInstance().executeRequest(q, false);
    return q->getValue();
}

class ToolInterfaceTest : public ToolGraphFixture {
protected:
    void SetUp() override {
        ToolGraphFixture::SetUp();
        mix = tool(new MixProtocol);
        node = root->createToolNode(mix, "M");
        ti = controllerOf(node);
    }
    void TearDown() override {
        ti = {};
        node = {};
        ToolGraphFixture::TearDown();
    }
    static RCShdPtr<PiToolInterface> controllerOf(RCShdPtr<PiToolNode> const& n) {
        return rcCast<PiToolInterface>(n->getController().lock());
    }
    RCShdPtr<PiInput> in(std::string const& name) const {
        RCShdPtr<PiInput> i = node->findInput(name);
        EXPECT_TRUE(i) << name;
        return i;
    }
    template <class T>
    RCShdPtr<PiTypedValue<T>> valueOf(std::string const& input) const {
        return rcCast<PiTypedValue<T>>(
            ti->getInputValueNode(*in(input))->findValue(PiValueNode::VALUE_NAME));
    }
    PiToolInterfaceImp& imp() const { return dynamic_cast<PiToolInterfaceImp&>(ti->getImp()); }

    RCShdPtr<PiTool const> mix;
    RCShdPtr<PiToolNode> node;
    RCShdPtr<PiToolInterface> ti;
};

// Which policy each input gets: the tool's own, else its type's default, else none; resolved
// once per input, and forgotten when the tool's policies change.
TEST_F(ToolInterfaceTest, PoliciesResolveToTheDeclaredOrTheTypesDefault) {
    using Policy = RCShdPtr<PiInputPolicy const>;
    auto const declared = [&](std::string const& key) {
        // The declared policy, as the description holds it.
        for (auto const& i : mix->getDescriptor().getInputs()) {
            if (i.name == key)
                return i.policy;
            if (i.structure)
                for (auto const& s : i.structure->getInputs())
                    if (i.name + "." + s.name == key)
                        return s.policy;
        }
        return Policy();
    };
    struct Case {
        char const* input;
        Policy expected;
        bool declared;
    };
    Policy const anyDouble(PiTypedInputPolicy<double>::getInstance());
    std::vector<Case> const cases = {
        {"Gain", declared("Gain"), true},
        {"Mode", declared("Mode"), true},
        {"Point.X", declared("Point.X"), true},
        {"Offset", anyDouble, false},
        {"Point.Y", anyDouble, false},
        {"Label", Policy(PiTypedInputPolicy<std::string>::getInstance()), false},
        {"Duration", Policy(PiTypedInputPolicy<DtTime>::getInstance()), false},
        {"Source", PiToolInterfaceImp::getDefaultPolicy(PiSocketType::IMAGE), false},
        {"Outline", Policy(PiShape2dInputPolicy::getDefault()), false},
        {"Camera", Policy(), false},
    };
    // Making the node resolved every input once; a new policy makes them resolve again.
    EXPECT_GT(imp().getCachedPolicyCount(), 0u);
    ti->addInputPolicy("Spare", PiTypedInputPolicy<int>::getInstance());
    EXPECT_EQ(imp().getCachedPolicyCount(), 0u);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.input);
        std::size_t const before = imp().getCachedPolicyCount();
        Policy const& want = c.expected;
        EXPECT_EQ(ti->getInputPolicy(*in(c.input)).get(), want.get());
        EXPECT_EQ(ti->getInputPolicy(*in(c.input)).get(), want.get());
        // Resolved once; an input without any policy leaves nothing behind.
        EXPECT_EQ(imp().getCachedPolicyCount(), before + (want ? 1 : 0));
        EXPECT_EQ(ti->hasInputPolicy(c.input), c.declared);
        EXPECT_EQ(ti->getInputPolicyKey(*in(c.input)), c.input);
    }
    EXPECT_FALSE(ti->hasInputPolicy("Point")); // a structure has no policy of its own
    EXPECT_TRUE(ti->hasInputPolicy("Point.X"));

    // Elements of a list take the list's policy.
    auto layers = rcCast<PiMultivaluedInput>(in("Layers"));
    RCShdPtr<PiInput> first = layers->insertInput(0);
    EXPECT_EQ(ti->getInputPolicyKey(*first), "Layers");
    RCShdPtr<PiInputPolicy const> mine = PiImageInputPolicy::createPrimary(0, 7);
    ti->addInputPolicy("Layers", mine);
    EXPECT_EQ(ti->getInputPolicy(*first).get(), mine.get());
    EXPECT_EQ(ti->getInputPolicy(*layers->insertInput(1)).get(), mine.get());

    // Replacing forgets what was resolved; a policy of another value type is refused at use.
    RCShdPtr<PiInputPolicy const> wider = PiRangeInputPolicy<double>::create(-5, 50, 2);
    ti->replaceInputPolicy(*in("Gain"), wider);
    EXPECT_EQ(imp().getCachedPolicyCount(), 0u);
    EXPECT_EQ(ti->getInputPolicy(*in("Gain")).get(), wider.get());
    EXPECT_THROW(ti->addInputPolicy("Gain", wider), ExBase);
    ti->addInputPolicy("Label", PiRangeInputPolicy<int>::create(0, 1, 0));
    EXPECT_THROW(ti->getInputPolicy(*in("Label")), ExBase);
}

TEST_F(ToolInterfaceTest, PrimarySocketsFollowTheProtocol) {
    // An empty multivalued primary input has no first value yet.
    EXPECT_FALSE(ti->getPrimaryInput());
    auto layers = rcCast<PiMultivaluedInput>(in("Layers"));
    RCShdPtr<PiInput> a = layers->insertInput(0);
    layers->insertInput(0);
    EXPECT_TRUE(PiGraphObject::areEqual(ti->getPrimaryInput(), layers->getInput(0)));
    EXPECT_FALSE(PiGraphObject::areEqual(ti->getPrimaryInput(), a));
    EXPECT_EQ(ti->getPrimaryOutput()->getName(), "Output");

    RCShdPtr<PiToolNode> plain = root->createToolNode(tool(new MixProtocol(false)), "P");
    EXPECT_FALSE(controllerOf(plain)->getPrimaryInput());
    EXPECT_FALSE(controllerOf(plain)->getPrimaryOutput());
}

// The recent presets: at most four names by name, a known name only selects, and an index
// beyond the list selects none; every selection is signalled.
TEST_F(ToolInterfaceTest, KeepsTheLastFourPresets) {
    struct PresetEvents : CbHandler<PiNodeEvent> {
        std::vector<int> indices;
        void execute(PiNodeEvent const& e) override {
            if (e.type == PiNodeEvent::PresetChanged)
                indices.push_back(e.index);
        }
    } events;
    ti->addEventHandler(&events);
    EXPECT_EQ(ti->getCurrentPreset(), -1);
    for (std::string n : {"a", "b", "c", "d"})
        ti->setCurrentPreset(n);
    ti->setCurrentPreset(std::string("b"));
    EXPECT_EQ(ti->getCurrentPreset(), 1);
    EXPECT_EQ(ti->getPresets(), (std::vector<std::string>{"a", "b", "c", "d"}));
    ti->setCurrentPreset(std::string("e"));
    EXPECT_EQ(ti->getPresets(), (std::vector<std::string>{"b", "c", "d", "e"}));
    EXPECT_EQ(ti->getCurrentPresetName(), "e");
    ti->setCurrentPreset(4);
    EXPECT_EQ(ti->getCurrentPresetName(), "");
    ti->setCurrentPreset(-3);
    EXPECT_EQ(events.indices, (std::vector<int>{0, 1, 2, 3, 1, 3, -1, -1}));

    ti->setCurrentPreset(1);
    ti->setPresets({"p", "q", "r"});
    EXPECT_EQ(ti->getCurrentPresetName(), "q");
    ti->setPresets({"x"});
    EXPECT_EQ(ti->getCurrentPreset(), -1);
    ti->clearPresets();
    EXPECT_TRUE(ti->getPresets().empty());
    ti->removeEventHandler(&events);
}

// A new node starts from its policies' defaults in the edit that makes it; reset brings any
// input back to its default, and inputs that a restored node's archive did not know are reset
// once it is loaded.
TEST_F(ToolInterfaceTest, ResetsBringInputsBackToTheirDefaults) {
    struct Case {
        char const* input;
        double fresh;
        double edited;
    };
    std::vector<Case> const cases = {
        {"Gain", 1.0, 7.0}, {"Point.X", 0.5, -0.25}, {"Point.Y", 0.0, 3.0}, {"Offset", 0.0, 2.0}};
    for (Case const& c : cases)
        EXPECT_EQ(valueOf<double>(c.input)->get(), c.fresh) << c.input;
    EXPECT_EQ(valueOf<int>("Mode")->get(), 1);

    // Making the node is one edit with its defaults: undone and redone as one.
    PiCommandStack& stack = graph->getCommandStack();
    int const edits = stack.getUndoCount();
    stack.undo();
    stack.redo();
    EXPECT_EQ(stack.getUndoCount(), edits);
    EXPECT_EQ(valueOf<double>("Gain")->get(), 1.0);

    auto edit = [&] {
        for (Case const& c : cases)
            valueOf<double>(c.input)->set(c.edited);
        valueOf<int>("Mode")->set(4);
    };
    edit();
    ti->reset("Gain");
    EXPECT_EQ(valueOf<double>("Gain")->get(), 1.0);
    EXPECT_EQ(valueOf<double>("Offset")->get(), 2.0);
    ti->reset(in("Point")); // a structure resets its members
    EXPECT_EQ(valueOf<double>("Point.X")->get(), 0.5);
    EXPECT_EQ(valueOf<double>("Point.Y")->get(), 0.0);
    edit();
    ti->reset();
    for (Case const& c : cases)
        EXPECT_EQ(valueOf<double>(c.input)->get(), c.fresh) << c.input;
    EXPECT_EQ(valueOf<int>("Mode")->get(), 1);

    RCShdPtr<PiToolNode> other = root->createToolNode(mix, "N");
    EXPECT_THROW(ti->reset(other->findInput("Gain")), ExBase);
    EXPECT_THROW(ti->reset("Nothing"), ExBase);

    edit();
    std::vector<RCShdPtr<PiInput>> added = {in("Gain"), in("Point")};
    ti->setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>>::overValues(added));
    PiNodeControllerManip::nodeLoaded(*ti);
    EXPECT_EQ(valueOf<double>("Gain")->get(), 1.0);
    EXPECT_EQ(valueOf<double>("Point.X")->get(), 0.5);
    EXPECT_EQ(valueOf<double>("Offset")->get(), 2.0);
    // Told once: a later load keeps what the user set.
    valueOf<double>("Gain")->set(9.0);
    PiNodeControllerManip::nodeLoaded(*ti);
    EXPECT_EQ(valueOf<double>("Gain")->get(), 9.0);
}

// Every socket type with a factory: its generator is one shared node of the type's protocol,
// and its pass-throughs accept only children of that protocol.
TEST_F(ToolInterfaceTest, FactoryTableGivesSharedNullNodesAndTypedPassThroughs) {
    struct Case {
        int type;
        std::function<bool(PxNode const*)> isOfType;
    };
    auto is = [](auto* tag) {
        using P = std::remove_pointer_t<decltype(tag)>;
        return [](PxNode const* n) {
            return dynamic_cast<P const*>(n) != nullptr;
        };
    };
    std::vector<Case> const cases = {
        {PiSocketType::BOOL, is((PxAnimValueProtocol<bool>*)nullptr)},
        {PiSocketType::DOUBLE, is((PxAnimValueProtocol<double>*)nullptr)},
        {PiSocketType::INT, is((PxAnimValueProtocol<int>*)nullptr)},
        {PiSocketType::STRING, is((PxAnimValueProtocol<std::string>*)nullptr)},
        {PiSocketType::TIME, is((PxValueProtocol<DtTime>*)nullptr)},
        {PiSocketType::IMAGE, is((PxImageProtocol*)nullptr)},
        {PiSocketType::OBJECT3D, is((PxObject3dProtocol*)nullptr)},
        {PiSocketType::GEOMETRY, is((PxGeometryProtocol*)nullptr)},
        {PiSocketType::MATERIAL, is((PxMaterialProtocol*)nullptr)},
        {PiSocketType::SHAPE2D, is((PxShape2dProtocol*)nullptr)},
        {PiSocketType::MATRIX, is((PxAffineMatrix2Protocol*)nullptr)},
        {PiSocketType::GRAPH_OBJ_IDS, is((PxGraphObjIdsProtocol*)nullptr)},
        {PiSocketType::CAMERA, is((PxCameraProtocol*)nullptr)},
    };
    Node const wrong = PiProcNodeFactory::createGeneratorNode(PiSocketType::CAMERA);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.type);
        ASSERT_TRUE(PiProcNodeFactory::isFactoryRegistered(PiSocketType(c.type)));
        Node const g = PiProcNodeFactory::createGeneratorNode(PiSocketType(c.type));
        EXPECT_TRUE(c.isOfType(g.get()));
        EXPECT_EQ(PiProcNodeFactory::createGeneratorNode(PiSocketType(c.type)).get(), g.get());
        Node const through = PiProcNodeFactory::createPassThroughNode(PiSocketType(c.type), g);
        EXPECT_TRUE(c.isOfType(through.get()));
        EXPECT_NE(through.get(), g.get());
        if (c.type != PiSocketType::CAMERA) {
            EXPECT_THROW(PiProcNodeFactory::createPassThroughNode(PiSocketType(c.type), wrong),
                         ExBase);
        }
    }
    // Generators answer the type's default, valid at all times.
    EXPECT_EQ(read<double>(PiProcNodeFactory::createGeneratorNode(PiSocketType::DOUBLE), 3.0),
              PxResult<double>(0.0, PxValidityInterval::FULL));
    EXPECT_EQ(read<std::string>(PiProcNodeFactory::createGeneratorNode(PiSocketType::STRING), -1),
              PxResult<std::string>(std::string(), PxValidityInterval::FULL));

    EXPECT_FALSE(PiProcNodeFactory::isFactoryRegistered(PiSocketType(6)));
    EXPECT_THROW(PiProcNodeFactory::createGeneratorNode(PiSocketType(6)), ExBase);
    EXPECT_THROW(PiProcNodeFactory::registerFactory(PiSocketType::DOUBLE, nullptr), ExBase);
}

// The node behind a value input: the policy filters what the child gives, and an input that
// cannot animate reads its child at time 0 and holds for all time; an input whose policy lets
// everything through at every time gets a plain pass-through.
TEST_F(ToolInterfaceTest, ValueInputNodesFilterThroughTheirPolicies) {
    Node const ramp = initialised<Node>(new Ramp<double>(3.0));
    Node const gain = PiProcNodeFactory::createInputNode(in("Gain"), ramp);
    ASSERT_NE(dynamic_cast<AnimValueInputNode<double> const*>(gain.get()), nullptr);
    struct Case {
        double t;
        double value;
        PxValidityInterval validity;
    };
    for (Case const& c : std::vector<Case>{{1.5, 3.0, {1, 2}},
                                           {3.2, 9.0, {3, 4}},
                                           {4.0, 10.0, {4, 5}}, // 12 clamped to the range
                                           {-2.5, 0.0, {-3, -2}}})
        EXPECT_EQ(read<double>(gain, c.t), PxResult<double>(c.value, c.validity)) << c.t;

    // Mode cannot animate: read at 0 whatever the time, valid for all of it; 5 is no choice
    // and becomes the default.
    struct ModeCase {
        Node child;
        int value;
    };
    for (ModeCase const& c : {ModeCase{initialised<Node>(new Ramp<int>(1)), 0},
                              ModeCase{initialised<Node>(new PxAnimValueNode<int>(
                                           PxNode::Init{"five"}, PxResult<int>(5))),
                                       1}}) {
        Node const mode = PiProcNodeFactory::createInputNode(in("Mode"), c.child);
        for (double t : {0.5, 7.0, -3.0})
            EXPECT_EQ(read<int>(mode, t), PxResult<int>(c.value, PxValidityInterval::FULL)) << t;
    }

    Node const offset = PiProcNodeFactory::createInputNode(in("Offset"), ramp);
    EXPECT_EQ(dynamic_cast<AnimValueInputNode<double> const*>(offset.get()), nullptr);
    EXPECT_EQ(read<double>(offset, 4.0), PxResult<double>(12.0, PxValidityInterval(4, 5)));
    EXPECT_THROW(PiProcNodeFactory::createInputNode(in("Label"), ramp), ExBase);
}

// A tool that gained an input since its node was archived: the restored node gets a value node
// for it, set to the policy's default, and keeps every value the archive held.
TEST_F(ToolInterfaceTest, InputsGainedSinceTheArchiveStartFromTheirDefaults) {
    auto const grade = [](bool withGain) {
        return testTool({"Grade", "Color"}, [withGain](PiToolPolicyDescriptor& d) {
            d.require("Offset", PiSocketType::DOUBLE);
            if (withGain)
                d.require("Gain", PiSocketType::DOUBLE,
                          PiRangeInputPolicy<double>::create(0, 4, 1));
        });
    };
    HoToolRegistry& reg = HoToolRegistry::initialize();
    RCShdPtr<PiTool const> before = grade(false);
    reg.registerTool(before);
    RCShdPtr<PiToolNode> a = root->createToolNode(before, "G");
    rcCast<PiTypedValue<double>>(controllerOf(a)
                                     ->getInputValueNode(*a->findInput("Offset"))
                                     ->findValue(PiValueNode::VALUE_NAME))
        ->set(2.5);
    XmlWriter w;
    PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>::overValues({a}), w);
    XmlDocument const doc = XmlDocument::parse(w.toString());

    reg.unregisterTool(before->getFullName(), "1.0");
    reg.registerTool(grade(true));
    auto restored = rcCast<PiToolNode>(graph->unarchiveNodes(doc.getRoot(), root).at(0));
    ASSERT_TRUE(restored);
    RCShdPtr<PiToolInterface> c = controllerOf(restored);
    auto valueOfInput = [&](char const* name) {
        RCShdPtr<PiValueNode> v = c->getInputValueNode(*restored->findInput(name));
        return v ? rcCast<PiTypedValue<double>>(v->findValue(PiValueNode::VALUE_NAME))->get()
                 : std::nan("");
    };
    EXPECT_EQ(valueOfInput("Offset"), 2.5);
    EXPECT_EQ(valueOfInput("Gain"), 1.0);
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*graph).empty());
    // Loading is one edit: undone, it leaves no value node behind.
    int const nodes = root->getNodeCount();
    graph->getCommandStack().undo();
    EXPECT_EQ(root->getNodeCount(), nodes - 3);
    HoToolRegistry::finalize();
}

TEST(ToolPredicatesAndProtocols, SelectToolsAndNameTheirKinds) {
    RCShdPtr<PiTool const> mix = tool(new MixProtocol);
    struct Case {
        PiToolPredicates::Predicate predicate;
        bool expected;
    };
    std::vector<Case> const cases = {
        {PiToolPredicates::hasInputOfType(PiSocketType::CAMERA), true},
        {PiToolPredicates::hasInputOfType(PiSocketType::MATERIAL), false},
        {PiToolPredicates::hasOutputOfType(PiSocketType::GEOMETRY), true},
        {PiToolPredicates::hasOutputOfType(PiSocketType::DOUBLE), false},
        {PiToolPredicates::isCategory("Filter"), true},
        {PiToolPredicates::isCategory("Color"), false},
        {PiToolPredicates::isActive(), true},
        {PiToolPredicates::isInternal(), false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(cases[i].predicate(mix), cases[i].expected) << i;
    EXPECT_EQ(PiToolPredicates::findFirstInputSocketOfType(mix, PiSocketType::DOUBLE), 2);
    EXPECT_EQ(PiToolPredicates::findFirstOutputSocketOfType(mix, PiSocketType::GEOMETRY), 1);
    EXPECT_EQ(PiToolPredicates::findFirstInputSocketOfType({}, PiSocketType::DOUBLE), -1);
    EXPECT_EQ(PiToolPredicates::findFirstInputSocketOfType(mix, PiSocketType::MATRIX), -1);

    EXPECT_EQ(PiReactionToolTypes::getToolTypeName(9), "Others");
    EXPECT_EQ(PiReactionToolTypes::getToolTypeName(3), "Cameras");
    EXPECT_THROW(PiReactionToolTypes::getToolTypeName(10), ExBase);
    EXPECT_THROW(PiReactionToolProtocolBase{PiReactionToolTypes::OTHERS}, ExBase);
    EXPECT_EQ(PiReactionToolProtocolBase(PiReactionToolTypes::RENDER).getToolType(),
              PiReactionToolTypes::RENDER);
    EXPECT_EQ(PiBrannockToolProtocol::getBrannockManufacturer(), "Brannock, Inc.");
}

} // namespace
