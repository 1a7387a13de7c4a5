#include "HoTools.h"

#include "ExBase.h"
#include "HoImageNodes.h"
#include "HoToolRegistry.h"
#include "PiInputPolicy.h"
#include "PxImageSourceNodes.h"
#include "PxValueNode.h"

namespace Vn {

namespace {

template <class P>
PxStrongHndl<P const> inputAs(PiToolTopologyInterface::OutputPublisher& p,
                              std::string const& name) {
    PxStrongHndl<PxNode const> const n = p.getInputNode(name);
    auto const* typed = dynamic_cast<P const*>(n.get());
    if (!typed)
        VN_THROW_MSG(ExBase, "the input \"" + name + "\" does not give the values the tool reads");
    return PxStrongHndl<P const>(typed);
}

template <class N>
PxStrongHndl<PxNode const> finished(N* n) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return PxStrongHndl<PxNode const>(h);
}

class Controller final : public HoToolController {
public:
    using Build = void (*)(OutputPublisher&);
    explicit Controller(Build build) : _build(build) {}
    void createProcNodes(OutputPublisher& publisher) override { _build(publisher); }

private:
    Build _build;
};

class Protocol final : public PiToolProtocolImp {
public:
    using Describe = void (*)(PiToolPolicyDescriptor&);
    Protocol(std::string name, std::string category, Describe describe, Controller::Build build,
             std::string primaryIn, std::string primaryOut)
        : PiToolProtocolImp(std::move(name), std::move(category), "1.0"), _describe(describe),
          _build(build), _primaryIn(std::move(primaryIn)), _primaryOut(std::move(primaryOut)) {}
    void describe(PiToolPolicyDescriptor& d) const override { _describe(d); }
    std::string getPrimaryInput() const override { return _primaryIn; }
    std::string getPrimaryOutput() const override { return _primaryOut; }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new Controller(_build));
    }

private:
    Describe _describe;
    Controller::Build _build;
    std::string _primaryIn, _primaryOut;
};

RCShdPtr<PiTool const> makeTool(Protocol* p) {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}

} // namespace

HoToolController::~HoToolController() = default;

PxStrongHndl<PxImageProtocol const> HoToolController::imageInput(OutputPublisher& p,
                                                                 std::string const& name) {
    return inputAs<PxImageProtocol>(p, name);
}

PxStrongHndl<PxAnimValueProtocol<double> const>
HoToolController::doubleInput(OutputPublisher& p, std::string const& name) {
    return inputAs<PxAnimValueProtocol<double>>(p, name);
}

PxStrongHndl<PxAnimValueProtocol<int> const> HoToolController::intInput(OutputPublisher& p,
                                                                        std::string const& name) {
    return inputAs<PxAnimValueProtocol<int>>(p, name);
}

RCShdPtr<PiTool const> HoTools::testPattern() {
    return makeTool(new Protocol(
        "Test Pattern", "Generator",
        [](PiToolPolicyDescriptor& d) {
            d.require("Width", PiSocketType::INT, PiRangeInputPolicy<int>::create(1, 16384, 320));
            d.require("Height", PiSocketType::INT, PiRangeInputPolicy<int>::create(1, 16384, 240));
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](PiToolTopologyInterface::OutputPublisher& p) {
            auto const format = finished(new PxImageFormatNode(
                PxNode::Init{"pattern format"},
                PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                              Rational(24))));
            auto const clear = finished(new PxConstantAnimValueNode<CoRgbColorTyped<float>>(
                PxNode::Init{"clear"}, PxResult<CoRgbColorTyped<float>>(CoRgbColorTyped<float>{})));
            auto const transparent = finished(new PxConstantAnimValueNode<double>(
                PxNode::Init{"transparent"}, PxResult<double>(0)));
            p.publish(
                "Output",
                finished(new HoTestPatternNode(
                    PxNode::Init{"test pattern"},
                    PxStrongHndl<PxImageFormatProtocol const>(
                        dynamic_cast<PxImageFormatProtocol const*>(format.get())),
                    HoToolController::intInput(p, "Width"), HoToolController::intInput(p, "Height"),
                    PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const>(
                        dynamic_cast<PxAnimValueProtocol<CoRgbColorTyped<float>> const*>(
                            clear.get())),
                    PxStrongHndl<PxAnimValueProtocol<double> const>(
                        dynamic_cast<PxAnimValueProtocol<double> const*>(transparent.get())))));
        },
        "", "Output"));
}

RCShdPtr<PiTool const> HoTools::over() {
    return makeTool(new Protocol(
        "Over", "Merge",
        [](PiToolPolicyDescriptor& d) {
            d.require("Front", PiSocketType::IMAGE);
            d.require("Back", PiSocketType::IMAGE);
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output", finished(new HoOverNode(PxNode::Init{"over"},
                                                        HoToolController::imageInput(p, "Front"),
                                                        HoToolController::imageInput(p, "Back"))));
        },
        "Back", "Output"));
}

RCShdPtr<PiTool const> HoTools::gain() {
    return makeTool(new Protocol(
        "Gain", "Color",
        [](PiToolPolicyDescriptor& d) {
            d.require("Source", PiSocketType::IMAGE);
            d.require("Gain", PiSocketType::DOUBLE, PiRangeInputPolicy<double>::create(0, 1000, 1));
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output", finished(new HoGainNode(PxNode::Init{"gain"},
                                                        HoToolController::imageInput(p, "Source"),
                                                        HoToolController::doubleInput(p, "Gain"))));
        },
        "Source", "Output"));
}

void HoTools::registerTools(HoToolRegistry& registry) {
    registry.registerTool(testPattern());
    registry.registerTool(over());
    registry.registerTool(gain());
}

} // namespace Vn
