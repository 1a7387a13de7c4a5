#pragma once

#include "OPtr.h"
#include "PiNode.h"
#include "PiPixelLoop.h"
#include "PiToolTopologyInterface.h"
#include "PxImageProtocol.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

class PiToolPolicyDescriptor;

// The mix-in of a tool that modifies the image of its primary input. The tool makes the
// modified image (the front); the library puts the node that masks and mutes it last, brings
// every image input to the tool's working format, and reports those conversions. The work is
// done by an implementation object that the tool framework supplies.
//
// A tool's controller derives from this beside its topology and tool interfaces, forwards
// createInputProcNode to createInputNode, calls createModifierProcNode from its build, and
// hands its stored-value changes to storedValueChanged.
class VN_EXPORT PiImageModifier : public virtual PiNodeController {
public:
    using AffectType = PiImageModifierTypes::AffectType;
    using OutputPublisher = PiToolTopologyInterface::OutputPublisher;
    using Node = PiToolTopologyInterface::Node;
    using Image = PxStrongHndl<PxImageProtocol const>;

    enum MaskingMode : int { NO_MASKING = 0, MASKING = 1 };

    // How an input's images reach the tool: from the source format to the target one.
    struct VN_EXPORT ConversionInfo {
        PxImageFormat source = PxImageFormat::INVALID_FORMAT;
        PxImageFormat target = PxImageFormat::INVALID_FORMAT;
        bool isConverted() const noexcept { return !(source == target); }
    };

    // Signalled when the mute changes, once the change is on its way to the workers, ahead of
    // any request made after it.
    class VN_EXPORT MuteEvent : public PiNodeEvent {
    public:
        MuteEvent(RCShdPtr<PiNode const> node, bool muted);
        ~MuteEvent() override;
        RCShdPtr<PiNode const> node;
        bool muted;
    };

    // Told, on the event thread, when an input's conversion is made or changes, to the
    // conversion handlers. The event's input is the converted input.
    class VN_EXPORT ConversionEvent : public PiNodeEvent {
    public:
        ConversionEvent(RCShdPtr<PiInput> in, ConversionInfo info);
        ~ConversionEvent() override;
        ConversionInfo info;
    };

    // What the library supplies behind the mix-in.
    class VN_EXPORT Imp {
    public:
        virtual ~Imp();
        // The image inputs but the mask.
        virtual std::vector<RCShdPtr<PiInput>> getImageInputs() const = 0;
        virtual bool getMute() const = 0;
        virtual void setMute(bool mute) = 0;
        virtual bool supportsAffect(AffectType affect) const = 0;
        virtual AffectType getAffect() const = 0;
        virtual void setAffect(AffectType affect) = 0;
        virtual int getMaskingMode() const = 0;
        virtual ConversionInfo getConversionInfo(PiInput const& in) const = 0;
        virtual void addConversionHandler(CbHandler<PiNodeEvent>* handler) = 0;
        virtual void removeConversionHandler(CbHandler<PiNodeEvent>* handler) = 0;
        virtual void forceCreateProcNodes() = 0;
        virtual void reset() = 0;
        virtual void resetMute() = 0;
        virtual void resetAffect() = 0;
        virtual void createModifierProcNode(OutputPublisher& publisher) = 0;
        virtual Node createInputNode(RCShdPtr<PiInput> const& in, Node const& child) = 0;
        // The node that stands last in the tool; null before the first build.
        virtual Image getOutputNode() const = 0;
    };
    using ImpFactory = OPtr<Imp> (*)(PiImageModifier& owner);

    // Installed by the tool framework at its start; null at its end.
    static void setImplementationFactory(ImpFactory factory);

    // Names of the sockets and stored values that every image modifier has.
    static std::string const& getMuteValueName();
    static std::string const& getAffectValueName();
    static std::string const& getOutputName();
    static std::string const& getMaskingInput();
    static std::string const& getMaskingActiveInput();
    static std::string const& getMaskingChannelInput();
    static std::string const& getMaskingInvertInput();
    static std::string const& getMaskingIntensityInput();

    // The affect after `affect`, in the order RGBA, RGB, alpha; 8 after the last.
    static int nextAffect(int affect) noexcept { return affect * 2; }
    // Declares the mask inputs, the output and the stored mute and affect values.
    static void describeModifier(PiToolPolicyDescriptor& d);

    // Raises ExBase when the tool framework has not started.
    PiImageModifier();
    ~PiImageModifier() override;

    bool getMute() const { return _imp->getMute(); }
    void setMute(bool mute) { _imp->setMute(mute); }
    bool supportsAffect(AffectType affect) const { return _imp->supportsAffect(affect); }
    AffectType getAffect() const { return _imp->getAffect(); }
    void setAffect(AffectType affect) { _imp->setAffect(affect); }
    // The conversion last made for an image input; the default when none was made yet.
    ConversionInfo getConversionInfo(PiInput const& in) const {
        return _imp->getConversionInfo(in);
    }
    // Handlers of ConversionEvent, called on the event thread. They are kept apart from the
    // node's events, which belong to the interface thread; these may be added and removed on
    // any thread, and a handler is removed before it is destroyed.
    void addConversionHandler(CbHandler<PiNodeEvent>* handler) {
        _imp->addConversionHandler(handler);
    }
    void removeConversionHandler(CbHandler<PiNodeEvent>* handler) {
        _imp->removeConversionHandler(handler);
    }
    std::vector<RCShdPtr<PiInput>> getImageInputs() const { return _imp->getImageInputs(); }
    void reset() { _imp->reset(); }
    Image getOutputNode() const { return _imp->getOutputNode(); }

    // The tool's own result from the primary input's image (already in the working format).
    virtual Image createFrontNode(OutputPublisher& publisher, Image const& back) = 0;

protected:
    // For the tool's createProcNodes: builds the front and the output, and publishes it.
    void createModifierProcNode(OutputPublisher& publisher) {
        _imp->createModifierProcNode(publisher);
    }
    // For the tool's createInputProcNode: image inputs are converted, others get no node.
    Node createInputNode(RCShdPtr<PiInput> const& in, Node const& child) {
        return _imp->createInputNode(in, child);
    }
    // For the tool's value-change hook: mute and affect changes go to the workers.
    void storedValueChanged(RCShdPtr<PiValue> const& value);

private:
    friend class PiImageModifierManip;
    OPtr<Imp> _imp;
};

// The side door through which the library reaches an image modifier's controller.
class VN_EXPORT PiImageModifierManip : public PiNodeControllerManip {
public:
    static PiImageModifier::Imp& getImp(PiImageModifier& m) { return *m._imp; }
};

} // namespace Vn
