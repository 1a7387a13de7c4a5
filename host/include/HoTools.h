#pragma once

#include "PiTool.h"
#include "PiToolInterface.h"
#include "PiToolTopologyInterface.h"
#include "PiValueChangeInterface.h"
#include "PxImageFormat.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class HoToolRegistry;
class PiImageInputPolicy;
class PxImageProtocol;
template <class T>
class PxAnimValueProtocol;

// The base of the application's tool controllers: a tool interface, a topology that builds
// processing nodes, and the stored values.
class VN_EXPORT HoToolController : public PiToolTopologyInterface,
                                   public PiToolInterface,
                                   public PiValueChangeInterface {
public:
    ~HoToolController() override;

    // The node of an input, as the protocol it must have; raises ExBase naming the input.
    static PxStrongHndl<PxImageProtocol const> imageInput(OutputPublisher& p,
                                                          std::string const& name);
    // The policy of the pixel tools' primary image input: RGBA float, so that a half or 8-bit
    // plate is raised once, at the first tool, and stays float down the chain.
    static RCShdPtr<PiImageInputPolicy const> const& workingPolicy();
    // An image input brought to workingPolicy()'s format; raises ExBase as imageInput does.
    static PxStrongHndl<PxImageProtocol const> workingInput(OutputPublisher& p,
                                                            std::string const& name);
    static PxStrongHndl<PxAnimValueProtocol<double> const> doubleInput(OutputPublisher& p,
                                                                       std::string const& name);
    static PxStrongHndl<PxAnimValueProtocol<int> const> intInput(OutputPublisher& p,
                                                                 std::string const& name);
    // The images' format from the node's stored values "Depth" (8, 16 or 32 bits, float when
    // 0) and "Rate" ("25" or "30000/1001"; 25 when empty), RGBA with square pixels.
    PxImageFormat storedFormat() const;

private:
    // The stored values shape the tool's nodes: a change rebuilds them.
    void valueChanged(RCShdPtr<PiValue> const& value) override;
};

// The tools of the application, as a plug-in would write them.
//  "Read":         stored File (a numbered pattern "plate.####.exr" or "%04d"), First and Last
//                  (frames) and Missing (0: an error naming the file and frame; 1: the nearest
//                  frame on disk); output Output: frame N of the files at frame N.
//  "Test Pattern": inputs Width and Height (int); output Output. The batch renderer's pattern,
//                  in float RGBA at its stored Rate (25 frames a second when empty).
//  "Over":         inputs Front and Back (images, Back primary); output Output. Premultiplied.
//  "Gain":         inputs Source (image, primary) and Gain (double, 0 to 1000, default 1);
//                  output Output: the colour times the gain.
//  "Convert":      input Source (image); stored Depth and Rate; output Output: the images in
//                  that format.
//  "Color Source": inputs Width, Height (int), Red, Green, Blue (double, default 0.18) and
//                  Opacity (double, 0 to 1, default 1); stored Depth and Rate; output Output.
//  "Repeat":       inputs Source, In and Out (first frame and frame behind the last), Mode
//                  (Hold, Loop, Ping Pong, No Repeat) and Lock; output Output.
//  "Time Offset":  inputs Source and Offset (whole frames, either way); output Output: the
//                  source's frame at t + Offset.
//  "Pan":          inputs Source, X and Y (pixels) and Filter (0 none to 7, as vnrender's
//                  names); output Output: the image moved, resampled by the filter.
//  "Transform":    inputs Source, the eight affine inputs (Translation.X/Y, Rotation, Scale.X/Y,
//                  Pivot.X/Y/Rotation; degrees) and Filter (Nearest, Bilinear, EWA, Mitchell);
//                  output Output.
//  "Crop":         inputs Source and the crop group (Crop.Mode, then Relative, Window and
//                  Absolute coordinates); output Output: the part kept.
//  "Blur":         inputs Source and Size (radius in pixels, 0 to 1024, default 2); output
//                  Output: a Gaussian blur of the premultiplied image.
//  "Grade":        inputs Source (image, primary) and Lift, Gain, Gamma and Offset, each with
//                  Red, Green, Blue and Alpha (double); per component v = Lift + x * (Gain -
//                  Lift), raised to 1 / Gamma where positive, plus Offset. An image modifier:
//                  masked by Mask, muted by the stored Mute, and changing RGBA, RGB or alpha
//                  alone by the stored Affect.
// Test Pattern keeps its stored Rate too; its pixels are float.
class VN_EXPORT HoTools {
public:
    static RCShdPtr<PiTool const> read();
    static RCShdPtr<PiTool const> testPattern();
    static RCShdPtr<PiTool const> over();
    static RCShdPtr<PiTool const> gain();
    static RCShdPtr<PiTool const> convert();
    static RCShdPtr<PiTool const> colorSource();
    static RCShdPtr<PiTool const> repeat();
    static RCShdPtr<PiTool const> timeOffset();
    static RCShdPtr<PiTool const> pan();
    static RCShdPtr<PiTool const> transform();
    static RCShdPtr<PiTool const> crop();
    static RCShdPtr<PiTool const> blur();
    static RCShdPtr<PiTool const> grade();
    // Registers them all with the registry.
    static void registerTools(HoToolRegistry& registry);
};

} // namespace Vn
