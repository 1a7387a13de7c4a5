#pragma once

#include "PxImageNode.h"
#include "PxValueProtocol.h"

namespace Vn {

// A pixel tool's node: it reads its primary in whatever depth it comes, raising it to float as
// it reads, and gives the working format, float RGBA (HoToolController::workingPolicy()).
class VN_EXPORT HoWorkingNode : public PxImageNode {
public:
    HoWorkingNode(PxNode::Init const& init, PxNodePtr<PxImageProtocol const> const& primary)
        : PxNode(init), PxImageNode(init, primary) {}
    PxImageFormat getImageFormat() const override;

protected:
    // The result's tile in the working format: itself when it is float RGBA or holds no pixels.
    IxTile working(PxImageContext const& context, PxImageResult const& result) const;
};

// The test pattern of the batch renderer: four horizontal bands, red, green, blue and grey
// ramps from left to right, under an alpha that falls from 1 at the top to 0.25 at the bottom.
// Pixels are premultiplied. The ramps move right by a quarter of the frame per second.
class VN_EXPORT HoTestPatternNode final : public PxImageLeafNode {
public:
    using PxImageLeafNode::PxImageLeafNode;
    PxImageResult getImageResult(PxImageContext const& context) const override;

    // The pattern's colour at (u, v) of the frame, both in [0, 1), at a time.
    static CoRgbaColorTyped<float> colorAt(float u, float v, double time);
};

// A premultiplied front image over a back image. The frame is the union of both; the format
// (in float) and the other questions of the image are the back's.
class VN_EXPORT HoOverNode final : public HoWorkingNode {
public:
    // No handle may be null.
    HoOverNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& front,
               PxStrongHndl<PxImageProtocol const> const& back);
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;

    static CoRgbaColorTyped<float> over(CoRgbaColorTyped<float> const& front,
                                        CoRgbaColorTyped<float> const& back) noexcept {
        float const k = 1.0f - front.a;
        return {front.r + back.r * k, front.g + back.g * k, front.b + back.b * k,
                front.a + back.a * k};
    }

protected:
    void init() override;

private:
    PxNodePtr<PxImageProtocol const> _front;
};

// A colour from three animated numbers, red, green and blue.
class VN_EXPORT HoColorNode final : public PxAnimValueProtocol<CoRgbColorTyped<float>> {
public:
    using Channel = PxStrongHndl<PxAnimValueProtocol<double> const>;
    // No handle may be null.
    HoColorNode(PxNode::Init const& init, Channel const& r, Channel const& g, Channel const& b);
    PxResult<CoRgbColorTyped<float>> getValue(PxTimeContext const& context) const override;

protected:
    void init() override;

private:
    PxNodePtr<PxAnimValueProtocol<double> const> _r, _g, _b;
};

// An image times a gain: premultiplied colour is scaled, alpha kept. The gain is animatable.
class VN_EXPORT HoGainNode final : public HoWorkingNode {
public:
    // No handle may be null.
    HoGainNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
               PxStrongHndl<PxAnimValueProtocol<double> const> const& gain);
    PxImageResult getImageResult(PxImageContext const& context) const override;

    static CoRgbaColorTyped<float> gain(CoRgbaColorTyped<float> const& c, float g) noexcept {
        return {c.r * g, c.g * g, c.b * g, c.a};
    }

protected:
    void init() override;

private:
    PxNodePtr<PxAnimValueProtocol<double> const> _gain;
};

// A tool's image input in the working format, for tools built on library nodes: the source's
// own tiles when they are float RGBA already, converted ones otherwise.
class VN_EXPORT HoWorkingImageNode final : public HoWorkingNode {
public:
    HoWorkingImageNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source)
        : PxNode(init), HoWorkingNode(init, source) {}
    PxImageResult getImageResult(PxImageContext const& context) const override;

protected:
    void init() override;
};

} // namespace Vn
