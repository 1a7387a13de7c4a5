#pragma once

#include "LkLock.h"
#include "PiImageModifier.h"

#include <map>

namespace Vn {

class ImageFormatInfo;
class PiImageModifierOutputNode;
class PiImageModifierProtocol;
class PiToolInterface;
class PiToolTopologyInterface;

// The library's side of an image modifier: the format agreement between its image inputs, the
// output node that masks and mutes, and the stored mute and affect values.
class VN_EXPORT ImageModifierImp final : public PiImageModifier::Imp,
                                         public PiImageModifierManip,
                                         public CbHandler<PiNodeEvent> {
public:
    using AffectType = PiImageModifier::AffectType;
    using ConversionInfo = PiImageModifier::ConversionInfo;
    using OutputPublisher = PiImageModifier::OutputPublisher;
    using Node = PiImageModifier::Node;
    using Image = PiImageModifier::Image;

    // Installs the factory of PiImageModifier; finalize removes it.
    static void initialize();
    static void finalize();

    explicit ImageModifierImp(PiImageModifier& tool);
    ~ImageModifierImp() noexcept override;

    std::vector<RCShdPtr<PiInput>> getImageInputs() const override;
    bool getMute() const override;
    void setMute(bool mute) override;
    bool supportsAffect(AffectType affect) const override;
    AffectType getAffect() const override;
    void setAffect(AffectType affect) override;
    int getMaskingMode() const override;
    ConversionInfo getConversionInfo(PiInput const& in) const override;
    void addConversionHandler(CbHandler<PiNodeEvent>* handler) override;
    void removeConversionHandler(CbHandler<PiNodeEvent>* handler) override;
    void forceCreateProcNodes() override;
    void reset() override;
    void resetMute() override;
    void resetAffect() override;
    void createModifierProcNode(OutputPublisher& publisher) override;
    Node createInputNode(RCShdPtr<PiInput> const& in, Node const& child) override;
    Image getOutputNode() const override;

    // On the event thread: a convert node made a conversion.
    void conversionMade(int inputId, ConversionInfo const& info);

private:
    void execute(PiNodeEvent const& event) override;
    void muteChanged();
    void affectChanged();
    PiToolInterface& toolInterface() const;
    PiToolTopologyInterface& topology() const;
    PiImageModifierProtocol const& toolInfo() const;
    RCShdPtr<PiNode> node() const;

    PiImageModifier& _tool;
    PxStrongHndl<PiImageModifierOutputNode> _vUtilOutNode;
    RCShdPtr<ImageFormatInfo> _formatInfo;
    // Written on the event thread, read on the interface thread; the handlers are called under
    // it too.
    mutable LkLock _conversionsLock{"ImageModifierImp conversions"};
    std::map<int, ConversionInfo> _conversions;
    CbDispatcher<PiNodeEvent> _conversionHandlers;
    // The image inputs by id, for the event thread, which must not walk the node's sockets.
    std::map<int, RCWeakPtr<PiInput>> _imageInputs;
};

} // namespace Vn
