#include "HoTools.h"

#include "ExBase.h"
#include "HoImageFiles.h"
#include "HoImageNodes.h"
#include "HoToolRegistry.h"
#include "PiImageConvertNode.h"
#include "PiImageInputPolicy.h"
#include "PiImageRepeatNode.h"
#include "PiInputPolicies.h"
#include "PiInputPolicy.h"
#include "PxImageSourceNodes.h"
#include "PxPannerNode.h"
#include "PxValueNode.h"
#include "XmlDocument.h"

#include <cstdlib>

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
    using Build = void (*)(HoToolController&, OutputPublisher&);
    explicit Controller(Build build) : _build(build) {}
    void createProcNodes(OutputPublisher& publisher) override { _build(*this, publisher); }

private:
    Build _build;
};

class Protocol final : public PiToolProtocolImp {
public:
    using Describe = void (*)(PiToolPolicyDescriptor&);
    Protocol(std::string name, std::string category, Describe describer, Controller::Build build,
             std::string primaryIn, std::string primaryOut)
        : PiToolProtocolImp(std::move(name), std::move(category), "1.0"), _describe(describer),
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

// Stands for files that cannot be read: the graph still loads and can be shown, and each
// render says why it cannot be made.
class UnreadableImageNode final : public PxImageProtocol {
public:
    UnreadableImageNode(PxNode::Init const& init, std::string reason)
        : PxNode(init), _reason(std::move(reason)) {}
    PxImageFormat getImageFormat() const override {
        return PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                             Rational(25));
    }
    PxRODResult getImageROD(PxTimeStreamContext const&) const override {
        VN_THROW_MSG(ExBase, _reason);
    }
    PxImageResult getImageResult(PxImageContext const&) const override {
        VN_THROW_MSG(ExBase, _reason);
    }
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }

private:
    std::string _reason;
};

RCShdPtr<PiTool const> makeTool(Protocol* p) {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}

} // namespace

HoToolController::~HoToolController() = default;

PxImageFormat HoToolController::storedFormat() const {
    RCShdPtr<PiNode> const node = getNode();
    int depth = IxPixelFormat::FLOAT32;
    std::string rate;
    if (node) {
        if (auto d = rcDynamicCast<PiTypedValue<int>>(node->findValue("Depth")); d && d->get() != 0)
            depth = d->get();
        if (auto r = rcDynamicCast<PiTypedValue<std::string>>(node->findValue("Rate")))
            rate = r->get();
    }
    if (depth != IxPixelFormat::UINT8 && depth != IxPixelFormat::FLOAT16 &&
        depth != IxPixelFormat::FLOAT32)
        VN_THROW_MSG(ExBase, "a depth of " + std::to_string(depth) + " bits is not 8, 16 or 32");
    return PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, depth),
                         rate.empty() ? Rational(25) : Rational::parsePositive(rate));
}

void HoToolController::valueChanged(RCShdPtr<PiValue> const&) {
    if (getToolImp().isBuilt())
        getToolImp().forceCreateProcNodes();
}

PxStrongHndl<PxImageProtocol const> HoToolController::imageInput(OutputPublisher& p,
                                                                 std::string const& name) {
    return inputAs<PxImageProtocol>(p, name);
}

RCShdPtr<PiImageInputPolicy const> const& HoToolController::workingPolicy() {
    static RCShdPtr<PiImageInputPolicy const> const policy = PiImageInputPolicy::createPrimary(
        PiImageInputPolicy::RGBA_COMPONENTS, PiImageInputPolicy::FLOAT32_DEPTH);
    return policy;
}

PxStrongHndl<PxImageProtocol const> HoToolController::workingInput(OutputPublisher& p,
                                                                   std::string const& name) {
    PxStrongHndl<HoWorkingImageNode> const n(
        new HoWorkingImageNode(PxNode::Init{"working input"}, imageInput(p, name)));
    PxNode::init(PxStrongHndl<PxNode>(n));
    return PxStrongHndl<PxImageProtocol const>(n.get());
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
            d.stores("Rate", PiValueType::String);
        },
        [](HoToolController& c, PiToolTopologyInterface::OutputPublisher& p) {
            auto const format = finished(new PxImageFormatNode(
                PxNode::Init{"pattern format"},
                PxImageFormat(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                              c.storedFormat().getFrameRate())));
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
            d.require("Back", PiSocketType::IMAGE, HoToolController::workingPolicy());
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](HoToolController&, PiToolTopologyInterface::OutputPublisher& p) {
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
            d.require("Source", PiSocketType::IMAGE, HoToolController::workingPolicy());
            d.require("Gain", PiSocketType::DOUBLE, PiRangeInputPolicy<double>::create(0, 1000, 1));
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](HoToolController&, PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output", finished(new HoGainNode(PxNode::Init{"gain"},
                                                        HoToolController::imageInput(p, "Source"),
                                                        HoToolController::doubleInput(p, "Gain"))));
        },
        "Source", "Output"));
}

namespace {
template <class T>
PxStrongHndl<PxAnimValueProtocol<T> const> constant(T v) {
    auto const n =
        finished(new PxConstantAnimValueNode<T>(PxNode::Init{"constant"}, PxResult<T>(v)));
    return PxStrongHndl<PxAnimValueProtocol<T> const>(
        dynamic_cast<PxAnimValueProtocol<T> const*>(n.get()));
}

PxStrongHndl<PxImageFormatProtocol const> formatNode(PxImageFormat const& f) {
    auto const n = finished(new PxImageFormatNode(PxNode::Init{"format"}, f));
    return PxStrongHndl<PxImageFormatProtocol const>(
        dynamic_cast<PxImageFormatProtocol const*>(n.get()));
}

void storesFormat(PiToolPolicyDescriptor& d) {
    d.stores("Depth", PiValueType::Int);
    d.stores("Rate", PiValueType::String);
}
} // namespace

RCShdPtr<PiTool const> HoTools::convert() {
    return makeTool(new Protocol(
        "Convert", "Color",
        [](PiToolPolicyDescriptor& d) {
            d.require("Source", PiSocketType::IMAGE);
            d.produces("Output", PiSocketType::IMAGE);
            storesFormat(d);
        },
        [](HoToolController& c, PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output",
                      finished(new PiImageInputConvertNode(
                          PxNode::Init{"convert"}, HoToolController::imageInput(p, "Source"),
                          PxNodePtr<PxImageFormatProtocol const>(formatNode(c.storedFormat())))));
        },
        "Source", "Output"));
}

RCShdPtr<PiTool const> HoTools::colorSource() {
    return makeTool(new Protocol(
        "Color Source", "Generator",
        [](PiToolPolicyDescriptor& d) {
            d.require("Width", PiSocketType::INT, PiRangeInputPolicy<int>::create(1, 16384, 320));
            d.require("Height", PiSocketType::INT, PiRangeInputPolicy<int>::create(1, 16384, 240));
            for (char const* channel : {"Red", "Green", "Blue"})
                d.require(channel, PiSocketType::DOUBLE,
                          PiRangeInputPolicy<double>::create(-1e6, 1e6, 0.18));
            d.require("Opacity", PiSocketType::DOUBLE, PiRangeInputPolicy<double>::create(0, 1, 1));
            d.produces("Output", PiSocketType::IMAGE);
            storesFormat(d);
        },
        [](HoToolController& c, PiToolTopologyInterface::OutputPublisher& p) {
            auto const color = finished(new HoColorNode(PxNode::Init{"color"},
                                                        HoToolController::doubleInput(p, "Red"),
                                                        HoToolController::doubleInput(p, "Green"),
                                                        HoToolController::doubleInput(p, "Blue")));
            p.publish(
                "Output",
                finished(new PxColorSourceNode(
                    PxNode::Init{"color source"}, formatNode(c.storedFormat()),
                    HoToolController::intInput(p, "Width"), HoToolController::intInput(p, "Height"),
                    constant(CoRgbColorTyped<float>{}), constant(0.0),
                    PxStrongHndl<PxAnimValueProtocol<CoRgbColorTyped<float>> const>(
                        dynamic_cast<PxAnimValueProtocol<CoRgbColorTyped<float>> const*>(
                            color.get())),
                    HoToolController::doubleInput(p, "Opacity"))));
        },
        "", "Output"));
}

RCShdPtr<PiTool const> HoTools::repeat() {
    return makeTool(new Protocol(
        "Repeat", "Time",
        [](PiToolPolicyDescriptor& d) {
            d.require("Source", PiSocketType::IMAGE);
            d.require("In", PiSocketType::INT);
            d.require("Out", PiSocketType::INT,
                      PiRangeInputPolicy<int>::create(-31536000, 31536000, 1));
            d.require("Mode", PiSocketType::INT, PiImageRepeatNode::getRepeatModeInputPolicy());
            d.require("Lock", PiSocketType::BOOL);
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](HoToolController&, PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output",
                      finished(new PiImageRepeatNode(
                          PxNode::Init{"repeat"}, HoToolController::imageInput(p, "Source"),
                          p.getInputNode("In"), p.getInputNode("Out"), p.getInputNode("Mode"),
                          p.getInputNode("Lock"))));
        },
        "Source", "Output"));
}

RCShdPtr<PiTool const> HoTools::read() {
    return makeTool(new Protocol(
        "Read", "Source",
        [](PiToolPolicyDescriptor& d) {
            d.produces("Output", PiSocketType::IMAGE);
            d.stores("File", PiValueType::String);
            d.stores("First", PiValueType::Int);
            d.stores("Last", PiValueType::Int);
            d.stores("Missing", PiValueType::Int);
        },
        [](HoToolController& c, PiToolTopologyInterface::OutputPublisher& p) {
            RCShdPtr<PiNode> const node = c.getNode();
            auto text = [&](char const* name) {
                auto v = rcDynamicCast<PiTypedValue<std::string>>(node->findValue(name));
                return v ? v->get() : std::string();
            };
            auto number = [&](char const* name) {
                auto v = rcDynamicCast<PiTypedValue<int>>(node->findValue(name));
                return v ? v->get() : 0;
            };
            if (text("File").empty())
                VN_THROW_MSG(ExBase, "the Read tool \"" + node->getNodeName() + "\" names no file");
            // The sequence's own reader checks the description.
            XmlDocument doc;
            XmlElement e = doc.createRoot(HoNumberedSequence::kRootName);
            e.setAttribute("pattern", text("File"));
            e.setAttribute("first", std::to_string(number("First")));
            e.setAttribute("last", std::to_string(number("Last")));
            e.setAttribute("missing", number("Missing") == 1 ? "hold" : "error");
            std::shared_ptr<PiImageSequence const> const sequence(
                HoNumberedSequence::fromXml(e).release());
            PxStrongHndl<PxNode const> file;
            try {
                file = finished(new HoImageFileNode(PxNode::Init{"read"}, sequence));
            } catch (ExBase const& x) {
                p.publish("Output", finished(new UnreadableImageNode(PxNode::Init{"unreadable"},
                                                                     "\"" + node->getNodeName() +
                                                                         "\": " + x.getReason())));
                return;
            }
            // The sequence's images count from 0: frame First stands at First's time.
            auto const offset = finished(new PxConstantAnimValueNode<int>(
                PxNode::Init{"first frame"}, PxResult<int>(-number("First"))));
            p.publish("Output", finished(new PiImageTimeOffsetNode(
                                    PxNode::Init{"read frames"},
                                    PxStrongHndl<PxImageProtocol const>(
                                        dynamic_cast<PxImageProtocol const*>(file.get())),
                                    offset)));
        },
        "", "Output"));
}

RCShdPtr<PiTool const> HoTools::timeOffset() {
    return makeTool(new Protocol(
        "Time Offset", "Time",
        [](PiToolPolicyDescriptor& d) {
            d.require("Source", PiSocketType::IMAGE);
            d.require("Offset", PiSocketType::INT, PiTimeOffsetInputPolicy::getShared());
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](HoToolController&, PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output",
                      finished(new PiImageTimeOffsetNode(PxNode::Init{"time offset"},
                                                         HoToolController::imageInput(p, "Source"),
                                                         p.getInputNode("Offset"))));
        },
        "Source", "Output"));
}

RCShdPtr<PiTool const> HoTools::pan() {
    return makeTool(new Protocol(
        "Pan", "Transform",
        [](PiToolPolicyDescriptor& d) {
            d.require("Source", PiSocketType::IMAGE, HoToolController::workingPolicy());
            d.require("X", PiSocketType::DOUBLE);
            d.require("Y", PiSocketType::DOUBLE);
            d.require("Filter", PiSocketType::INT, PiRangeInputPolicy<int>::create(0, 7, 2));
            d.produces("Output", PiSocketType::IMAGE);
        },
        [](HoToolController&, PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output",
                      finished(new PxPannerNode(
                          PxNode::Init{"pan"}, HoToolController::workingInput(p, "Source"),
                          HoToolController::doubleInput(p, "X"),
                          HoToolController::doubleInput(p, "Y"), constant(0.0), constant(0.0),
                          HoToolController::intInput(p, "Filter"), constant(1.0))));
        },
        "Source", "Output"));
}

void HoTools::registerTools(HoToolRegistry& registry) {
    for (auto const& tool :
         {read(), testPattern(), over(), gain(), grade(), convert(), colorSource(), repeat(),
          timeOffset(), pan(), transform(), crop(), blur()})
        registry.registerTool(tool);
}

} // namespace Vn
