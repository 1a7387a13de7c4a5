#pragma once

#include "LkLock.h"
#include "PxImageNode.h"
#include "PxValueProtocol.h"

#include <atomic>
#include <memory>
#include <vector>

namespace Vn {

class PiImageConvertNode;
class PiImageModifierBackNode;

// The last node of an image modifier: the tool's result (the front) masked over its primary
// input (the back), or the back alone, in the front's format, while the tool is muted. With a
// mask, each pixel is (A - B) * mask[channel] * intensity + B, where A is the front and B the
// back, swapped by invert. The affect names the components the tool may change: the others
// are the back's, masked or not.
//
// When it makes whole frames and a child does not, it gathers that child's frame once per
// time, scale and stream and keeps it until an invalidation reaches the node: the renderer asks
// tile by tile, and each tile would otherwise gather the frame again.
class VN_EXPORT PiImageModifierOutputNode final : public PxImageNode {
public:
    using Image = PxStrongHndl<PxImageProtocol const>;
    static constexpr int kAffectRgba = 1; // PiImageModifierTypes::AFFECT_RGBA
    template <class T>
    using Value = PxStrongHndl<PxAnimValueProtocol<T> const>;

    // Front and back must not be null; without masking the mask and values must be.
    PiImageModifierOutputNode(PxNode::Init const& init, Image const& front, Image const& back,
                              Image const& mask, Value<bool> const& active,
                              Value<int> const& channel, Value<bool> const& invert,
                              Value<double> const& intensity, bool mute, bool performMasking,
                              int affect = kAffectRgba);
    ~PiImageModifierOutputNode() override;
    // The back to build the front on and to give this node: a tile it asks of the back for its
    // own mix is then handed to the front rather than asked of the graph below again.
    static Image shareBack(Image const& back);

    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    // Kept from the last (re)initialization: asking the children each time would walk the
    // graph below twice per modifier, front and back, and a chain of modifiers exponentially.
    bool producesFullFrames() const override { return _fullFrames.load(std::memory_order_relaxed); }
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;
    // The back's invalidations reach the node through the front, which is made from it.
    bool propagateAndRemapInvalidation(PxValidityInterval* interval,
                                       PxUPtr<PxNode const> const& from,
                                       int* stream) const override;

    // On a worker, through a set request.
    void setMute(bool const& mute);
    bool isMuted() const noexcept { return _mute; }
    // A value of PiImageModifierTypes::AffectType, on a worker, through a set request; one
    // other than RGB or alpha affects all four components.
    void setAffect(int const& affect);
    int getAffect() const noexcept { return _affect; }

protected:
    void init() override;

private:
    struct Frame;
    PxImageResult childResult(PxNodePtr<PxImageProtocol const> const& child,
                              PxImageContext const& context) const;
    PxImageResult gatherFrame(PxNodePtr<PxImageProtocol const> const& child,
                              PxImageContext const& context) const;
    bool gathers(PxNodePtr<PxImageProtocol const> const& child,
                 PxImageContext const& context) const;
    PxImageResult backResult(PxImageContext const& context) const;
    PxImageResult maskedResult(PxImageContext const& context) const;
    // The front where the tool changes all components, else merged with the back.
    PxImageResult frontResult(PxImageContext const& context, PxValidityInterval vi) const;
    IxTile resultTile(PxImageContext const& context, CoRgbaColorTyped<float> const& fill,
                      GeRectangle<float> const& rod) const;
    bool masks() const;
    bool computeFullFrames() const;
    void rebuildConvertedBack();

    PxNodePtr<PxImageProtocol const> _frontChild;
    PxNodePtr<PxImageProtocol const> _backChild;
    PxNodePtr<PxImageProtocol const> _maskChild;
    PxNodePtr<PxAnimValueProtocol<bool> const> _active;
    PxNodePtr<PxAnimValueProtocol<int> const> _channel;
    PxNodePtr<PxAnimValueProtocol<bool> const> _invert;
    PxNodePtr<PxAnimValueProtocol<double> const> _intensity;
    PxImageFormat _backFormat = PxImageFormat::INVALID_FORMAT;
    PxNodePtr<PiImageConvertNode> _convertedBackChild;
    PiImageModifierBackNode const* _sharedBack; // _backChild, when it was shared
    bool _mute;
    int _affect;
    std::atomic<bool> _fullFrames{false};

    // Gathered frames, a few at most: workers look them up under the lock and fill each once.
    mutable LkLock _framesLock{"PiImageModifierOutputNode frames"};
    mutable std::vector<std::shared_ptr<Frame>> _frames;
};

} // namespace Vn
