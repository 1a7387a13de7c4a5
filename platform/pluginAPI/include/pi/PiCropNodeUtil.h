#pragma once

#include "GeRectangle.h"
#include "LkCounter.h"
#include "PiToolTopologyInterface.h"
#include "PxImageFormat.h"
#include "PxImageProtocol.h"
#include "PxValueProtocol.h"
#include "RCBase.h"

#include <memory>
#include <string>

namespace Vn {

template <class T>
class CbHandler;
class PiNode;
class PiNodeEvent;
class PiOutput;
class PiTimePath;
class PiToolPolicyDescriptor;

// The inputs of a crop ("Crop" group: a mode and the coordinates of each mode), the region
// they make, and the fitting of a crop to a rectangle for the user interface.
class VN_EXPORT PiCropNodeUtil {
public:
    enum Mode : int { RELATIVE = 0, WINDOW = 1, ABSOLUTE = 2, AUTO_CROP = 3 };
    enum AutoCrop : bool { NO_AUTO_CROP = false, WITH_AUTO_CROP = true };

    static std::string getModeSocketName();
    static std::string getRelativeCropLeftSocketName();
    static std::string getRelativeCropRightSocketName();
    static std::string getRelativeCropTopSocketName();
    static std::string getRelativeCropBottomSocketName();
    static std::string getAbsoluteCropLeftSocketName();
    static std::string getAbsoluteCropRightSocketName();
    static std::string getAbsoluteCropTopSocketName();
    static std::string getAbsoluteCropBottomSocketName();
    static std::string getWindowCropCenterXSocketName();
    static std::string getWindowCropCenterYSocketName();
    static std::string getWindowCropWidthSocketName();
    static std::string getWindowCropHeightSocketName();

    // Declares the inputs; "Auto Crop" is offered only with autoCrop. defaultMode must be one
    // of the modes offered (ExBase otherwise).
    static void describe(PiToolPolicyDescriptor& descriptor, AutoCrop autoCrop, Mode defaultMode);

    // The value nodes behind a tool's crop inputs.
    class VN_EXPORT Params {
    public:
        using Publisher = PiToolTopologyInterface::OutputPublisher;
        using Input = PxNodePtr<PxAnimValueProtocol<int> const>;

        // The value nodes, none null, in the order of the members.
        struct Inputs {
            Input mode, relLeft, relBottom, relRight, relTop, absLeft, absBottom, absRight, absTop,
                centerX, width, centerY, height;
        };

        // Raises ExBase when an input does not give integers.
        explicit Params(Publisher& publisher);
        // For nodes built without a tool; a null node raises the null-pointer exception.
        explicit Params(Inputs const& inputs);
        void registerChildren(PxNode& node) const;
        void unregisterChildren(PxNode& node) const;
        // The mode at time 0 is "Auto Crop".
        bool isAutoCrop() const;
        // The nominal rectangle the crop keeps of an input whose region is `input`. The result's
        // validity is the input's narrowed by each value read.
        PxRODResult computeImageROD(PxTimeContext const& context, PxRODResult const& input,
                                    PxImageFormat const& format) const;

    private:
        int read(Input const& in, PxTimeContext const& context, PxValidityInterval& vi) const;

        Input _mode, _relLeft, _relBottom, _relRight, _relTop, _absLeft, _absBottom, _absRight,
            _absTop, _centerX, _width, _centerY, _height;
    };

    // The interface side of a crop: the current mode, its changes, and fitting to a rectangle.
    class VN_EXPORT CropUiControl : public RCBase<LkCounter<int>> {
    public:
        // node: the crop tool's node; time: where it is looked at; output: the output whose
        // format sets the aspect; stream: the stream of the primary input read for its region.
        CropUiControl(RCShdPtr<PiNode> const& node, PiTimePath const& time,
                      RCShdPtr<PiOutput const> const& output, int stream);
        ~CropUiControl() noexcept override;

        int getCurrentMode() const;
        // Handlers hear each change of the mode input, with the new mode.
        void addModeChangedCb(CbHandler<int>* handler);
        void removeModeChangedCb(CbHandler<int>* handler);
        // Writes the current mode's coordinates so that the crop keeps the nominal rectangle r.
        // "Auto Crop" has none: nothing is written.
        void fitTo(GeRectangle<float> const& r);

    private:
        class Imp;
        std::unique_ptr<Imp> _imp;
    };
};

} // namespace Vn
