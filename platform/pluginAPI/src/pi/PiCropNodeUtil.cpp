#include "PiCropNodeUtil.h"

#include "Cb.h"
#include "ExBase.h"
#include "PiInputPolicy.h"
#include "PiNode.h"
#include "PiNodeController.h"
#include "PiPath.h"
#include "PiSocket.h"
#include "PiSockets.h"
#include "PiTool.h"
#include "PiValue.h"

#include <cmath>

namespace Vn {

namespace {

constexpr int kCoordinateLimit = 99999;

std::string mode(char const* label, char const* member) {
    return std::string("Crop.") + label + "." + member;
}

PxNodePtr<PxAnimValueProtocol<int> const> intInput(PiToolTopologyInterface::OutputPublisher& p,
                                                   std::string const& name) {
    PxStrongHndl<PxNode const> const n = p.getInputNode(name);
    auto const* typed = dynamic_cast<PxAnimValueProtocol<int> const*>(n.get());
    if (!typed)
        VN_THROW_MSG(ExBase, "the input \"" + name + "\" does not give integers");
    return PxNodePtr<PxAnimValueProtocol<int> const>(
        PxStrongHndl<PxAnimValueProtocol<int> const>(typed));
}

RCShdPtr<PiInput> nodeInput(RCShdPtr<PiNode> const& node, std::string const& name) {
    RCShdPtr<PiInput> in = node->findInput(name);
    if (!in)
        VN_THROW_MSG(ExBase,
                     "the node \"" + node->getNodeName() + "\" has no input \"" + name + "\"");
    return in;
}

} // namespace

std::string PiCropNodeUtil::getModeSocketName() {
    return "Crop.Mode";
}
std::string PiCropNodeUtil::getRelativeCropLeftSocketName() {
    return mode("Relative", "Left");
}
std::string PiCropNodeUtil::getRelativeCropRightSocketName() {
    return mode("Relative", "Right");
}
std::string PiCropNodeUtil::getRelativeCropTopSocketName() {
    return mode("Relative", "Top");
}
std::string PiCropNodeUtil::getRelativeCropBottomSocketName() {
    return mode("Relative", "Bottom");
}
std::string PiCropNodeUtil::getAbsoluteCropLeftSocketName() {
    return mode("Absolute", "Left");
}
std::string PiCropNodeUtil::getAbsoluteCropRightSocketName() {
    return mode("Absolute", "Right");
}
std::string PiCropNodeUtil::getAbsoluteCropTopSocketName() {
    return mode("Absolute", "Top");
}
std::string PiCropNodeUtil::getAbsoluteCropBottomSocketName() {
    return mode("Absolute", "Bottom");
}
std::string PiCropNodeUtil::getWindowCropCenterXSocketName() {
    return mode("Window", "CenterX");
}
std::string PiCropNodeUtil::getWindowCropCenterYSocketName() {
    return mode("Window", "CenterY");
}
std::string PiCropNodeUtil::getWindowCropWidthSocketName() {
    return mode("Window", "Width");
}
std::string PiCropNodeUtil::getWindowCropHeightSocketName() {
    return mode("Window", "Height");
}

void PiCropNodeUtil::describe(PiToolPolicyDescriptor& d, AutoCrop autoCrop, Mode defaultMode) {
    std::vector<PiEnumPolicy::Entry> entries{
        {RELATIVE, "Relative"}, {WINDOW, "Window"}, {ABSOLUTE, "Absolute"}};
    if (autoCrop)
        entries.emplace_back(AUTO_CROP, "Auto Crop");
    bool const offered = defaultMode >= RELATIVE && defaultMode < static_cast<int>(entries.size());
    if (!offered)
        VN_THROW_MSG(ExBase, "the crop's default mode " + std::to_string(defaultMode) +
                                 " is not one it offers");
    auto const coordinate = PiRangeInputPolicy<int>::create(-kCoordinateLimit, kCoordinateLimit, 0);
    PiStructuredPolicyDescriptor& crop = d.requireStructured("Crop");
    crop.require("Mode", PiSocketType::INT,
                 RCShdPtr<PiInputPolicy const>(new PiEnumPolicy(entries, false, defaultMode)));
    auto group = [&](char const* label, std::initializer_list<char const*> members) {
        PiStructuredPolicyDescriptor& g = crop.requireStructured(label);
        for (char const* m : members)
            g.require(m, PiSocketType::INT, coordinate);
    };
    group("Relative", {"Left", "Right", "Bottom", "Top"});
    group("Window", {"CenterX", "CenterY", "Width", "Height"});
    group("Absolute", {"Left", "Right", "Bottom", "Top"});
}

PiCropNodeUtil::Params::Params(Publisher& p)
    : _mode(intInput(p, getModeSocketName())),
      _relLeft(intInput(p, getRelativeCropLeftSocketName())),
      _relBottom(intInput(p, getRelativeCropBottomSocketName())),
      _relRight(intInput(p, getRelativeCropRightSocketName())),
      _relTop(intInput(p, getRelativeCropTopSocketName())),
      _absLeft(intInput(p, getAbsoluteCropLeftSocketName())),
      _absBottom(intInput(p, getAbsoluteCropBottomSocketName())),
      _absRight(intInput(p, getAbsoluteCropRightSocketName())),
      _absTop(intInput(p, getAbsoluteCropTopSocketName())),
      _centerX(intInput(p, getWindowCropCenterXSocketName())),
      _width(intInput(p, getWindowCropWidthSocketName())),
      _centerY(intInput(p, getWindowCropCenterYSocketName())),
      _height(intInput(p, getWindowCropHeightSocketName())) {}

PiCropNodeUtil::Params::Params(Inputs const& in)
    : _mode(in.mode), _relLeft(in.relLeft), _relBottom(in.relBottom), _relRight(in.relRight),
      _relTop(in.relTop), _absLeft(in.absLeft), _absBottom(in.absBottom), _absRight(in.absRight),
      _absTop(in.absTop), _centerX(in.centerX), _width(in.width), _centerY(in.centerY),
      _height(in.height) {
    for (Input const* i :
         {&_mode, &_relLeft, &_relBottom, &_relRight, &_relTop, &_absLeft, &_absBottom, &_absRight,
          &_absTop, &_centerX, &_width, &_centerY, &_height})
        if (i->isNull())
            RCExUtil::throwExNullPtr("PxAnimValueProtocol<int>");
}

void PiCropNodeUtil::Params::registerChildren(PxNode& node) const {
    for (Input const* in :
         {&_mode, &_relLeft, &_relBottom, &_relRight, &_relTop, &_absLeft, &_absBottom, &_absRight,
          &_absTop, &_centerX, &_width, &_centerY, &_height})
        node.registerChild(PxNodePtr<PxNode const>(*in));
}

void PiCropNodeUtil::Params::unregisterChildren(PxNode& node) const {
    for (Input const* in :
         {&_mode, &_relLeft, &_relBottom, &_relRight, &_relTop, &_absLeft, &_absBottom, &_absRight,
          &_absTop, &_centerX, &_width, &_centerY, &_height})
        node.unregisterChild(PxNodePtr<PxNode const>(*in));
}

int PiCropNodeUtil::Params::read(Input const& in, PxTimeContext const& context,
                                 PxValidityInterval& vi) const {
    PxResult<int> const r = in->getValue(context);
    r.reduceVI(vi);
    return r.getValue();
}

bool PiCropNodeUtil::Params::isAutoCrop() const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    return read(_mode, PxTimeContext(0.0), vi) == AUTO_CROP;
}

PxRODResult PiCropNodeUtil::Params::computeImageROD(PxTimeContext const& c,
                                                    PxRODResult const& input,
                                                    PxImageFormat const& format) const {
    PxValidityInterval vi = input.getValidityInterval();
    float const a = format.getAspectRatio();
    GeRectangle<float> const& in = input.getROD();
    GeRectangle<float> rod;
    switch (read(_mode, c, vi)) {
    case RELATIVE: {
        float const left = static_cast<float>(read(_relLeft, c, vi)) * a;
        float const bottom = static_cast<float>(read(_relBottom, c, vi));
        float const right = static_cast<float>(read(_relRight, c, vi)) * a;
        float const top = static_cast<float>(read(_relTop, c, vi));
        if (left == 0.0f && bottom == 0.0f && right == 0.0f && top == 0.0f)
            rod = in;
        else if (left + right >= in.xmax - in.xmin || bottom + top >= in.ymax - in.ymin)
            rod = {};
        else
            rod = {in.xmin + left, in.xmax - right, in.ymin + bottom, in.ymax - top};
        break;
    }
    case WINDOW: {
        int const cx = read(_centerX, c, vi);
        int const width = read(_width, c, vi);
        int const cy = read(_centerY, c, vi);
        int const height = read(_height, c, vi);
        if (width <= 0 || height <= 0)
            break;
        rod = PxImageProtocol::createCenteredNominalROD(width, height, a)
                  .translated(static_cast<float>(cx) * a, static_cast<float>(cy));
        break;
    }
    case ABSOLUTE: {
        int const left = read(_absLeft, c, vi);
        int const bottom = read(_absBottom, c, vi);
        int const right = read(_absRight, c, vi);
        int const top = read(_absTop, c, vi);
        if (left <= right && bottom <= top)
            rod = PxImageProtocol::pixelizedToNominal({left, right, bottom, top}, a, 1.0f);
        break;
    }
    default: // "Auto Crop": the tool decides
        break;
    }
    return {rod, vi};
}

// The inputs the control reads and writes, and the watch on the mode.
class PiCropNodeUtil::CropUiControl::Imp final : public CbHandler<PiNodeEvent> {
public:
    Imp(RCShdPtr<PiNode> const& n, PiTimePath const& t, int s)
        : node(n), time(t), stream(s), relLeft(nodeInput(node, getRelativeCropLeftSocketName())),
          relRight(nodeInput(node, getRelativeCropRightSocketName())),
          relTop(nodeInput(node, getRelativeCropTopSocketName())),
          relBottom(nodeInput(node, getRelativeCropBottomSocketName())),
          absLeft(nodeInput(node, getAbsoluteCropLeftSocketName())),
          absRight(nodeInput(node, getAbsoluteCropRightSocketName())),
          absTop(nodeInput(node, getAbsoluteCropTopSocketName())),
          absBottom(nodeInput(node, getAbsoluteCropBottomSocketName())),
          centerX(nodeInput(node, getWindowCropCenterXSocketName())),
          centerY(nodeInput(node, getWindowCropCenterYSocketName())),
          width(nodeInput(node, getWindowCropWidthSocketName())),
          height(nodeInput(node, getWindowCropHeightSocketName())),
          mode(nodeInput(node, getModeSocketName())) {}
    // Members' destructors may be declared to throw; none does once the control is made.
    ~Imp() noexcept override {}

    int currentMode() const {
        // The mode does not animate: its value node's stored value is the mode.
        if (RCShdPtr<PiValueNode> const v = PiInputPolicy::getValueNode(*mode))
            if (auto const value =
                    rcDynamicCast<PiTypedValue<int>>(v->findValue(PiValueNode::VALUE_NAME)))
                return value->get();
        return PiTypedAnimSocket<int, PiInput>(mode).getValue(0.0);
    }
    // The value node behind the mode input signalled: tell the handlers of a new mode.
    void execute(PiNodeEvent const&) override {
        int const now = currentMode();
        if (now == lastMode)
            return;
        lastMode = now;
        modeChanged.call(now);
    }

    RCShdPtr<PiNode> node;
    PiTimePath time;
    int stream;
    PiTypedAnimInput<int> relLeft, relRight, relTop, relBottom, absLeft, absRight, absTop,
        absBottom, centerX, centerY, width, height;
    RCShdPtr<PiInput> mode;
    RCShdPtr<PiInput> image;
    PxImageFormat format;
    CbDispatcher<int> modeChanged;
    int lastMode = 0;
};

PiCropNodeUtil::CropUiControl::CropUiControl(RCShdPtr<PiNode> const& node, PiTimePath const& time,
                                             RCShdPtr<PiOutput const> const& output, int stream) {
    if (!node)
        RCExUtil::throwExNullPtr("PiNode");
    if (!output)
        RCExUtil::throwExNullPtr("PiOutput");
    _imp = std::make_unique<Imp>(node, time, stream);
    _imp->format = PiImageSocket<PiOutput>(output).getFormat();
    if (auto const* tool = dynamic_cast<PiToolNode const*>(node.get())) {
        std::string const primary = tool->getTool()->getProtocol().getPrimaryInput();
        if (!primary.empty())
            _imp->image = node->findInput(primary);
    }
    if (RCShdPtr<PiValueNode> const v = PiInputPolicy::getValueNode(*_imp->mode))
        if (RCShdPtr<PiNodeController> const c = v->getController().lock())
            c->addEventHandler(_imp.get());
    _imp->lastMode = _imp->currentMode();
}

PiCropNodeUtil::CropUiControl::~CropUiControl() noexcept = default;

int PiCropNodeUtil::CropUiControl::getCurrentMode() const {
    return _imp->currentMode();
}

void PiCropNodeUtil::CropUiControl::addModeChangedCb(CbHandler<int>* handler) {
    _imp->modeChanged.addHandler(handler);
}

void PiCropNodeUtil::CropUiControl::removeModeChangedCb(CbHandler<int>* handler) {
    _imp->modeChanged.removeHandler(handler);
}

void PiCropNodeUtil::CropUiControl::fitTo(GeRectangle<float> const& r) {
    double const t = _imp->time.getTime();
    float const a = _imp->format.getAspectRatio();
    switch (getCurrentMode()) {
    case ABSOLUTE: {
        GeRectangle<int> const p = PxImageProtocol::nominalToPixelized(r, a, 1.0f);
        _imp->absLeft.setValue(t, p.xmin);
        _imp->absRight.setValue(t, p.xmax);
        _imp->absTop.setValue(t, p.ymax);
        _imp->absBottom.setValue(t, p.ymin);
        break;
    }
    case WINDOW: {
        GeRectangle<int> const p = PxImageProtocol::nominalToPixelized(r, a, 1.0f);
        float const mx = 0.5f * (r.xmin + r.xmax);
        float const my = 0.5f * (r.ymin + r.ymax);
        _imp->centerX.setValue(t, static_cast<int>(std::floor(mx / a)));
        _imp->centerY.setValue(t, static_cast<int>(std::floor(my)));
        _imp->width.setValue(t, p.xmax - p.xmin);
        _imp->height.setValue(t, p.ymax - p.ymin);
        break;
    }
    case RELATIVE: {
        if (!_imp->image)
            VN_THROW_MSG(ExBase, "the crop \"" + _imp->node->getNodeName() +
                                     "\" has no primary input to fit a relative crop to");
        GeRectangle<float> const rod =
            PiImageSocket<PiInput>(_imp->image).getROD(t, _imp->stream).getROD();
        _imp->relLeft.setValue(t, static_cast<int>((r.xmin - rod.xmin) / a));
        _imp->relTop.setValue(t, static_cast<int>(rod.ymax - r.ymax));
        _imp->relRight.setValue(t, static_cast<int>((rod.xmax - r.xmax) / a));
        _imp->relBottom.setValue(t, static_cast<int>(r.ymin - rod.ymin));
        break;
    }
    default:
        break;
    }
}

} // namespace Vn
