#pragma once

#include "PiInputPolicies.h"
#include "PxImageNode.h"
#include "PxValueProtocol.h"
#include "TmTypes.h"

#include <cstdint>

namespace Vn {

// A generator's frame range [in, out) repeated in time: the parent's time is folded into the
// range on the way down, the child's validity widened as far as the repeat allows on the way
// up, and a change of the child at some times invalidates the parent times that show them.
class VN_EXPORT PiImageRepeatNode final : public PxImageProtocol {
public:
    // The in and out times and the mode are int value nodes (frames, a TmTypes::RepeatMode), the
    // lock a bool one: with the lock, No Repeat shows nothing outside the range. No handle may
    // be null. A mode outside the policy raises when the node starts; one that arrives later
    // makes evaluation raise until a known mode returns. An out frame not after the in frame
    // makes a range of the in frame alone.
    PiImageRepeatNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& child,
                      PxStrongHndl<PxNode const> const& inTime,
                      PxStrongHndl<PxNode const> const& outTime,
                      PxStrongHndl<PxNode const> const& repeatMode,
                      PxStrongHndl<PxNode const> const& lockDuration);

    PxImageFormat getImageFormat() const override { return _child->getImageFormat(); }
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    bool isChainConnected() const override { return _child->isChainConnected(); }
    bool producesFullFrames() const override { return _child->producesFullFrames(); }
    int getNbStreams() const override { return _child->getNbStreams(); }

    bool propagateAndRemapInvalidation(PxValidityInterval* interval,
                                       PxUPtr<PxNode const> const& from,
                                       int* stream) const override;
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;

    // The child's time for a parent time, the range being [start, end) in seconds and frames
    // lasting frameDuration. A range shorter than a frame lasts a frame. Raises ExBase for a
    // duration that is not a positive finite number or bounds that are not finite.
    static double getCurrentTime(double parentTime, double start, double end, double frameDuration,
                                 TmTypes::RepeatMode mode);

    // The choice of repeat modes: not animatable, No Repeat by default.
    static RCShdPtr<PiEnumPolicy const> const& getRepeatModeInputPolicy();
    static void initializeRepeatModes();
    static void finalizeRepeatModes();

    // The range as seconds, by kind: 0 inside the frames' times, 1 from the first frame's time
    // to the last's, 2 a little beyond both.
    PxValidityInterval getRepeatInterval(int kind) const;

protected:
    void init() override;

private:
    void readFormat() const;
    void readInterval() const;
    // Reads the mode; true when both the old and the new value are known modes.
    bool readMode() const;
    void checkMode() const;
    // What evaluation needs: a rate with frames and a known mode.
    void checkRange() const;
    double seconds(std::int64_t index) const;
    double getFrameDuration() const;
    PxValidityInterval getOutsideValidity(double t) const;
    // True when the mode is No Repeat with the lock on and t lies outside the range.
    bool isLockedOut(double t) const;
    double getChildTime(double t) const;
    PxValidityInterval mapValidity(PxValidityInterval const& v, double t, double c) const;
    void invalidateOutside(int stream) const;

    PxNodePtr<PxImageProtocol const> _child;
    PxNodePtr<PxAnimValueProtocol<int> const> _inTime;
    PxNodePtr<PxAnimValueProtocol<int> const> _outTime;
    PxNodePtr<PxAnimValueProtocol<int> const> _repeatMode;
    PxNodePtr<PxAnimValueProtocol<bool> const> _lockDuration;
    // Read in init and in invalidation, which run alone; evaluation only reads them.
    mutable PxImageFormat _format;
    mutable std::int64_t _inIndex = 0;
    mutable std::int64_t _outIndex = 0;
    mutable Rational _rate;
    mutable TmTypes::RepeatMode _mode = TmTypes::NO_REPEAT;
    mutable int _modeValue = TmTypes::NO_REPEAT; // as read, known or not
    mutable bool _lock = false;
};

// The repeat-mode choice with another default, for generators.
class VN_EXPORT PiRepeatModeInputPolicy final : public PiEnumPolicy {
public:
    explicit PiRepeatModeInputPolicy(TmTypes::RepeatMode defaultMode);
};

// A clip moved in time by a whole number of frames: the child at t + offset is the node at t.
class VN_EXPORT PiImageTimeOffsetNode final : public PxImageNode {
public:
    // The offset is an int value node, in frames of the child's rate. No handle may be null.
    PiImageTimeOffsetNode(PxNode::Init const& init,
                          PxStrongHndl<PxImageProtocol const> const& child,
                          PxStrongHndl<PxNode const> const& offset);

    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    bool propagateAndRemapInvalidation(PxValidityInterval* interval,
                                       PxUPtr<PxNode const> const& from,
                                       int* stream) const override;
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;

    static double getOffsetTime(double t, double offset) noexcept { return t + offset; }
    static double getReverseOffsetTime(double t, double offset) noexcept { return t - offset; }
    double getOffsetSeconds() const noexcept { return _offsetSeconds; }

protected:
    void init() override;

private:
    void readOffset();
    void checkRate() const;

    PxNodePtr<PxAnimValueProtocol<int> const> _offset;
    double _offsetSeconds = 0.0;
    int _offsetFrames = 0;
    Rational _rate;
};

} // namespace Vn
