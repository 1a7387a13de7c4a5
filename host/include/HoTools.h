#pragma once

#include "PiTool.h"
#include "PiToolInterface.h"
#include "PiToolTopologyInterface.h"
#include "PiValueChangeInterface.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class HoToolRegistry;
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
    static PxStrongHndl<PxAnimValueProtocol<double> const> doubleInput(OutputPublisher& p,
                                                                       std::string const& name);
    static PxStrongHndl<PxAnimValueProtocol<int> const> intInput(OutputPublisher& p,
                                                                 std::string const& name);
};

// The tools of the application, as a plug-in would write them.
//  "Test Pattern": inputs Width and Height (int); output Output. The batch renderer's pattern,
//                  in float RGBA at 24 frames a second.
//  "Over":         inputs Front and Back (images, Back primary); output Output. Premultiplied.
//  "Gain":         inputs Source (image, primary) and Gain (double, 0 to 1000, default 1);
//                  output Output: the colour times the gain.
class VN_EXPORT HoTools {
public:
    static RCShdPtr<PiTool const> testPattern();
    static RCShdPtr<PiTool const> over();
    static RCShdPtr<PiTool const> gain();
    // Registers the three with the registry.
    static void registerTools(HoToolRegistry& registry);
};

} // namespace Vn
