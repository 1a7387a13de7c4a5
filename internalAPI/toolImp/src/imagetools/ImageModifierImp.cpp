#include "ImageModifierImp.h"
#include "PiOnWorker.h"

#include "EvEventManager.h"
#include "ExBase.h"
#include "PiImageConvertNode.h"
#include "PiImageInputPolicy.h"
#include "PiImageModifierOutputNode.h"
#include "PiImageModifierProtocol.h"
#include "PiSocket.h"
#include "PiTool.h"
#include "PiToolInterface.h"
#include "PiToolTopologyInterface.h"
#include "PxImageSourceNodes.h"
#include "PxPassThroughNode.h"
#include "PxQueryRequest.h"
#include "PxRequestMgr.h"
#include "PxValueNode.h"
#include "StackGuard.h"

#include <algorithm>
#include <functional>

namespace Vn {

namespace {

using Image = PxStrongHndl<PxImageProtocol const>;
using ConversionInfo = PiImageModifier::ConversionInfo;

class SecondaryImageConvertNode;

} // namespace

// What the convert nodes of one tool share: the primary format, the secondaries that follow it,
// and the way back to the tool for the conversions they make.
class ImageFormatInfo final : public RCBase<LkCounter<int>> {
public:
    ImageFormatInfo(int primaryId, RCWeakPtr<PiNodeController> controller, ImageModifierImp* imp)
        : _primaryId(primaryId), _controller(std::move(controller)), _imp(imp) {}

    int getPrimaryId() const noexcept { return _primaryId; }
    bool isPrimaryKnown() const {
        LkGuard g(_lock);
        return _primFmtInit;
    }
    PxImageFormat getPrimaryFormat() const {
        LkGuard g(_lock);
        return _primaryFormat;
    }
    void addListener(SecondaryImageConvertNode* n) {
        LkGuard g(_lock);
        if (std::find(_listeners.begin(), _listeners.end(), n) == _listeners.end())
            _listeners.push_back(n);
    }
    void removeListener(SecondaryImageConvertNode* n) {
        LkGuard g(_lock);
        std::erase(_listeners, n);
    }
    // Publishes the primary format and re-converts every secondary input.
    void setPrimaryFormat(PxImageFormat const& format);
    // The tool hears of it on the event thread, while it still exists.
    void post(int inputId, ConversionInfo const& info) const {
        RCWeakPtr<PiNodeController> controller = _controller;
        ImageModifierImp* imp = _imp;
        EvEventManager::getInstance().post([controller, imp, inputId, info] {
            if (RCShdPtr<PiNodeController> alive = controller.lock())
                imp->conversionMade(inputId, info);
        });
    }

private:
    int _primaryId;
    RCWeakPtr<PiNodeController> _controller;
    ImageModifierImp* _imp;
    // Secondaries come and go on the interface thread and are called on workers.
    mutable LkLock _lock{"ImageFormatInfo listeners"};
    bool _primFmtInit = false;
    PxImageFormat _primaryFormat = PxImageFormat::INVALID_FORMAT;
    std::vector<SecondaryImageConvertNode*> _listeners;
};

namespace {

// An image input of the tool: its child in the format the input's policy asks for.
class ImageConvertNodeBase : public PxPassThroughNode<PxImageProtocol> {
public:
    ImageConvertNodeBase(PxNode::Init const& init, Image const& child,
                         RCShdPtr<PiImageInputPolicy const> policy, RCShdPtr<ImageFormatInfo> info,
                         int inputId)
        : PxNode(init), PxPassThroughNode<PxImageProtocol>(init, child), _policy(std::move(policy)),
          _info(std::move(info)), _inputId(inputId) {}

    PxImageFormat getImageFormat() const override {
        return _converter.isNull() ? getChild()->getImageFormat() : _converter->getImageFormat();
    }
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override {
        return _converter.isNull() ? getChild()->getImageROD(context)
                                   : _converter->getImageROD(context);
    }
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override {
        piRunOnWorker([this] { reconvert(); }, true);
        PxPassThroughNode<PxImageProtocol>::invalidateAndReinitialize(interval, from, stream);
    }

protected:
    PxImageResult result(PxImageContext const& context) const {
        return _converter.isNull() ? getChild()->getImageResult(context)
                                   : _converter->getImageResult(context);
    }
    // Builds the converter for the child's format and target; false when the one in use fits.
    bool convert(PxImageFormat const& target) {
        PxImageFormat const source = getChild()->getImageFormat();
        if (!_converter.isNull() && _converter->getChild().get() == getChild().get() &&
            source == _source && _converter->getImageFormat() == target)
            return false;
        _source = source;
        _converter = PiImageConvertNode::create(PxNodePtr<PxImageProtocol const>(getChild()),
                                                source, target);
        _info->post(_inputId, ConversionInfo{source, target});
        return true;
    }
    virtual void reconvert() = 0;

    RCShdPtr<PiImageInputPolicy const> _policy;
    RCShdPtr<ImageFormatInfo> _info;
    int _inputId;
    PxNodePtr<PiImageConvertNode> _converter;
    PxImageFormat _source = PxImageFormat::INVALID_FORMAT;
};

class PrimaryImageConvertNode final : public ImageConvertNodeBase {
public:
    PrimaryImageConvertNode(PxNode::Init const& init, Image const& child,
                            RCShdPtr<PiImageInputPolicy const> policy,
                            RCShdPtr<ImageFormatInfo> info, int inputId)
        : PxNode(init),
          ImageConvertNodeBase(init, child, std::move(policy), std::move(info), inputId) {}

    PxImageResult getImageResult(PxImageContext const& context) const override {
        VN_STACK_GUARD("PrimaryImageConvertNode::getImageResult");
        return result(context);
    }

protected:
    void init() override {
        ImageConvertNodeBase::init();
        piRunOnWorker([this] { reconvert(); }, true);
    }
    void reconvert() override {
        PxImageFormat const source = getChild()->getImageFormat();
        PxImageFormat const target = _policy ? _policy->getTargetFormat(source) : source;
        if (convert(target) || !_info->isPrimaryKnown())
            _info->setPrimaryFormat(_converter->getImageFormat());
    }
};

class SecondaryImageConvertNode final : public ImageConvertNodeBase {
public:
    SecondaryImageConvertNode(PxNode::Init const& init, Image const& child,
                              RCShdPtr<PiImageInputPolicy const> policy,
                              RCShdPtr<ImageFormatInfo> info, int inputId)
        : PxNode(init),
          ImageConvertNodeBase(init, child, std::move(policy), std::move(info), inputId) {}
    ~SecondaryImageConvertNode() override { _info->removeListener(this); }

    PxImageResult getImageResult(PxImageContext const& context) const override {
        VN_STACK_GUARD("SecondaryImageConvertNode::getImageResult");
        return result(context);
    }
    // The primary format changed.
    void primaryChanged() {
        if (!_info->isPrimaryKnown())
            return;
        reconvert();
        invalidate(PxValidityInterval::FULL, -2);
    }

protected:
    void init() override {
        ImageConvertNodeBase::init();
        _info->addListener(this);
        piRunOnWorker([this] { reconvert(); }, true);
    }
    void reconvert() override {
        if (!_info->isPrimaryKnown())
            return;
        PxImageFormat const source = getChild()->getImageFormat();
        convert(_policy ? _policy->getTargetFormat(source, _info->getPrimaryFormat()) : source);
    }
};

} // namespace

void ImageFormatInfo::setPrimaryFormat(PxImageFormat const& format) {
    // Called under the lock: a secondary cannot leave while it is being told.
    LkGuard g(_lock);
    _primaryFormat = format;
    _primFmtInit = true;
    std::vector<SecondaryImageConvertNode*> const listeners = _listeners;
    for (SecondaryImageConvertNode* n : listeners)
        n->primaryChanged();
}

// ---- the tool's side ----

ImageModifierImp::ImageModifierImp(PiImageModifier& tool) : _tool(tool) {
    tool.addCallback(this);
}

ImageModifierImp::~ImageModifierImp() noexcept = default;

void ImageModifierImp::initialize() {
    PiImageModifier::setImplementationFactory(+[](PiImageModifier& owner) {
        return OPtr<PiImageModifier::Imp>(new ImageModifierImp(owner));
    });
}

void ImageModifierImp::finalize() {
    PiImageModifier::setImplementationFactory(nullptr);
}

PiToolInterface& ImageModifierImp::toolInterface() const {
    auto* t = dynamic_cast<PiToolInterface*>(&_tool);
    if (!t)
        VN_THROW_MSG(ExBase, "an image modifier's controller must be a tool interface");
    return *t;
}

PiToolTopologyInterface& ImageModifierImp::topology() const {
    auto* t = dynamic_cast<PiToolTopologyInterface*>(&_tool);
    if (!t)
        VN_THROW_MSG(ExBase, "an image modifier's controller must be a tool topology");
    return *t;
}

PiImageModifierProtocol const& ImageModifierImp::toolInfo() const {
    RCShdPtr<PiTool const> const tool = toolInterface().getTool();
    auto const* info =
        tool ? dynamic_cast<PiImageModifierProtocol const*>(&tool->getProtocol()) : nullptr;
    VN_ASSERT(info != nullptr);
    return *info;
}

RCShdPtr<PiNode> ImageModifierImp::node() const {
    RCShdPtr<PiNode> n = _tool.getNode();
    if (!n)
        VN_THROW_MSG(ExBase, "the image modifier has no node");
    return n;
}

std::vector<RCShdPtr<PiInput>> ImageModifierImp::getImageInputs() const {
    std::vector<RCShdPtr<PiInput>> inputs;
    for (auto it = node()->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next())
        if (it.item()->getType().getType() == PiSocketType::IMAGE &&
            it.item()->getName() != PiImageModifier::getMaskingInput())
            inputs.push_back(it.item());
    return inputs;
}

bool ImageModifierImp::getMute() const {
    RCShdPtr<PiNode> const n = _tool.getNode();
    auto v =
        n ? rcDynamicCast<PiTypedValue<bool>>(n->findValue(PiImageModifier::getMuteValueName()))
          : RCShdPtr<PiTypedValue<bool>>();
    return v && v->get();
}

void ImageModifierImp::setMute(bool mute) {
    auto v =
        rcDynamicCast<PiTypedValue<bool>>(node()->findValue(PiImageModifier::getMuteValueName()));
    if (!v)
        VN_THROW_MSG(ExBase, "the tool stores no \"" + PiImageModifier::getMuteValueName() + "\"");
    v->set(mute);
}

bool ImageModifierImp::supportsAffect(AffectType affect) const {
    switch (affect) {
    case PiImageModifierTypes::AFFECT_RGBA:
        return toolInfo().supportsAffectRgba();
    case PiImageModifierTypes::AFFECT_RGB:
        return toolInfo().supportsAffectRgb();
    case PiImageModifierTypes::AFFECT_ALPHA:
        return toolInfo().supportsAffectAlpha();
    }
    VN_ASSERT(!"affect 1, 2 or 4");
    return false;
}

PiImageModifierTypes::AffectType ImageModifierImp::getAffect() const {
    RCShdPtr<PiNode> const n = _tool.getNode();
    auto v =
        n ? rcDynamicCast<PiTypedValue<int>>(n->findValue(PiImageModifier::getAffectValueName()))
          : RCShdPtr<PiTypedValue<int>>();
    int const a = v ? v->get() : 0;
    if (a == PiImageModifierTypes::AFFECT_RGB || a == PiImageModifierTypes::AFFECT_ALPHA)
        return static_cast<AffectType>(a);
    return PiImageModifierTypes::AFFECT_RGBA;
}

void ImageModifierImp::setAffect(AffectType affect) {
    if (!supportsAffect(affect))
        VN_THROW_MSG(ExBase, "the tool cannot affect " + std::to_string(affect));
    auto v =
        rcDynamicCast<PiTypedValue<int>>(node()->findValue(PiImageModifier::getAffectValueName()));
    if (!v)
        VN_THROW_MSG(ExBase,
                     "the tool stores no \"" + PiImageModifier::getAffectValueName() + "\"");
    v->set(affect);
}

int ImageModifierImp::getMaskingMode() const {
    return toolInfo().getMaskingMode();
}

PiImageModifier::ConversionInfo ImageModifierImp::getConversionInfo(PiInput const& in) const {
    VN_ASSERT(in.getType().getType() == PiSocketType::IMAGE);
    LkGuard g(_conversionsLock);
    auto const it = _conversions.find(in.getId());
    return it == _conversions.end() ? ConversionInfo{} : it->second;
}

void ImageModifierImp::forceCreateProcNodes() {
    PiCreateProcGuard guard(topology());
    topology().getToolImp().forceCreateProcNodes();
}

void ImageModifierImp::reset() {
    resetMute();
    resetAffect();
}

void ImageModifierImp::resetMute() {
    setMute(false);
}

void ImageModifierImp::resetAffect() {
    for (int a = PiImageModifierTypes::AFFECT_RGBA; a < 8; a = PiImageModifier::nextAffect(a))
        if (supportsAffect(static_cast<AffectType>(a))) {
            setAffect(static_cast<AffectType>(a));
            return;
        }
}

namespace {
template <class P>
PxStrongHndl<P const> inputOf(PiToolTopologyInterface::OutputPublisher& p,
                              std::string const& name) {
    PxStrongHndl<PxNode const> const n = p.getInputNode(name);
    auto const* typed = dynamic_cast<P const*>(n.get());
    if (!typed)
        VN_THROW_MSG(ExBase, "the input \"" + name + "\" does not give what the tool reads");
    return PxStrongHndl<P const>(typed);
}
} // namespace

void ImageModifierImp::createModifierProcNode(OutputPublisher& publisher) {
    RCShdPtr<PiInput> const primary = toolInterface().getPrimaryInput();
    VN_ASSERT(primary && primary->getType().getType() == PiSocketType::IMAGE);
    Image back;
    if (primary->getType().getCardinality() == PiSocketType::COMPOSITE) {
        // A list of layers has no one image to stand behind the tool's result.
        PxStrongHndl<PxBlackSourceNode> black(
            new PxBlackSourceNode(PxNode::Init{"PxBlackSourceNode"}));
        PxNode::init(PxStrongHndl<PxNode>(black));
        back = Image(black);
    } else {
        back = inputOf<PxImageProtocol>(publisher, primary->getName());
    }
    bool const masking = getMaskingMode() == PiImageModifier::MASKING;
    back = PiImageModifierOutputNode::shareBack(back);
    Image const front = _tool.createFrontNode(publisher, back);
    if (front.isNull())
        VN_THROW_MSG(ExBase, "the image modifier made no image");
    Image mask;
    PiImageModifierOutputNode::Value<bool> active, invert;
    PiImageModifierOutputNode::Value<int> channel;
    PiImageModifierOutputNode::Value<double> intensity;
    if (masking) {
        mask = inputOf<PxImageProtocol>(publisher, PiImageModifier::getMaskingInput());
        active =
            inputOf<PxAnimValueProtocol<bool>>(publisher, PiImageModifier::getMaskingActiveInput());
        channel =
            inputOf<PxAnimValueProtocol<int>>(publisher, PiImageModifier::getMaskingChannelInput());
        invert =
            inputOf<PxAnimValueProtocol<bool>>(publisher, PiImageModifier::getMaskingInvertInput());
        intensity = inputOf<PxAnimValueProtocol<double>>(
            publisher, PiImageModifier::getMaskingIntensityInput());
    }
    PxStrongHndl<PiImageModifierOutputNode> out(new PiImageModifierOutputNode(
        PxNode::Init{"PiImageModifierOutputNode"}, front, back, mask, active, channel, invert,
        intensity, getMute(), masking, getAffect()));
    PxNode::init(PxStrongHndl<PxNode>(out));
    _vUtilOutNode = out;
    publisher.publish(PiImageModifier::getOutputName(), PxStrongHndl<PxNode const>(out));
}

PiImageModifier::Node ImageModifierImp::createInputNode(RCShdPtr<PiInput> const& in,
                                                        Node const& child) {
    if (in->getType().getType() != PiSocketType::IMAGE)
        return topology().PiToolTopologyInterface::createInputProcNode(in, child);
    RCShdPtr<PiInput> const primary = toolInterface().getPrimaryInput();
    if (!_formatInfo)
        _formatInfo = RCShdPtr<ImageFormatInfo>(new ImageFormatInfo(
            primary ? primary->getId() : -1, RCWeakPtr<PiNodeController>(&_tool), this));
    {
        LkGuard g(_conversionsLock);
        _imageInputs[in->getId()] = RCWeakPtr<PiInput>(in);
    }
    auto const policy =
        rcDynamicCast<PiImageInputPolicy const>(toolInterface().getInputPolicy(*in));
    auto const* image = dynamic_cast<PxImageProtocol const*>(child.get());
    if (!image)
        VN_THROW_MSG(ExBase, "the input \"" + in->getName() + "\" is fed no image");
    Image const c(image);
    PxStrongHndl<PxNode> n;
    if (PiGraphObject::areEqual(in, primary))
        n = PxStrongHndl<PxNode>(new PrimaryImageConvertNode(
            PxNode::Init{"PrimaryImageConvertNode"}, c, policy, _formatInfo, in->getId()));
    else
        n = PxStrongHndl<PxNode>(new SecondaryImageConvertNode(
            PxNode::Init{"SecondaryImageConvertNode"}, c, policy, _formatInfo, in->getId()));
    PxNode::init(n);
    return Node(n);
}

PiImageModifier::Image ImageModifierImp::getOutputNode() const {
    return Image(_vUtilOutNode);
}

void ImageModifierImp::conversionMade(int inputId, ConversionInfo const& info) {
    LkGuard g(_conversionsLock);
    _conversions[inputId] = info;
    auto const it = _imageInputs.find(inputId);
    RCShdPtr<PiInput> const in = it == _imageInputs.end() ? RCShdPtr<PiInput>() : it->second.lock();
    _conversionHandlers.call(PiImageModifier::ConversionEvent(in, info));
}

void ImageModifierImp::addConversionHandler(CbHandler<PiNodeEvent>* handler) {
    LkGuard g(_conversionsLock);
    _conversionHandlers.addHandler(handler);
}

void ImageModifierImp::removeConversionHandler(CbHandler<PiNodeEvent>* handler) {
    LkGuard g(_conversionsLock);
    _conversionHandlers.removeHandler(handler);
}

void ImageModifierImp::execute(PiNodeEvent const& event) {
    if (event.type != PiNodeEvent::ValueChanged || !event.value)
        return;
    if (event.value->getName() == PiImageModifier::getMuteValueName())
        muteChanged();
    else if (event.value->getName() == PiImageModifier::getAffectValueName())
        affectChanged();
}

void ImageModifierImp::muteChanged() {
    if (_vUtilOutNode.isNull())
        return; // the first build reads the value
    bool const mute = getMute();
    PxMutationRequest::submit(new PxSetRequest<PiImageModifierOutputNode, bool>(
        PxUPtr<PiImageModifierOutputNode>(_vUtilOutNode), &PiImageModifierOutputNode::setMute,
        mute));
    signalEvent(_tool, PiImageModifier::MuteEvent(node(), mute));
}

void ImageModifierImp::affectChanged() {
    if (_vUtilOutNode.isNull())
        return; // the first build reads the value
    // The set request invalidates the node once the workers see the new affect.
    PxMutationRequest::submit(new PxSetRequest<PiImageModifierOutputNode, int>(
        PxUPtr<PiImageModifierOutputNode>(_vUtilOutNode), &PiImageModifierOutputNode::setAffect,
        static_cast<int>(getAffect())));
}

} // namespace Vn
