#pragma once

#include "CoMotionVectorInfo.h"
#include "CoRgbaColor.h"
#include "DtTimeIndex.h"
#include "LkCounter.h"
#include "RCBase.h"
#include "Rational.h"
#include "VnExport.h"

#include <cstdint>
#include <string>

namespace Vn {

class PiNodeDndInterface;

// A file, or a numbered sequence of files, dragged over a graph: what the application learnt
// of it, and which tool would make its node.
class VN_EXPORT PiFileDndInterface : public RCBase<LkCounter<int>> {
public:
    ~PiFileDndInterface() override;

    virtual std::string getName() const = 0;
    virtual std::string getCompositionName() const = 0;
    // A text only the file's format understands.
    virtual std::string getFileFormatOptions() const = 0;
    virtual bool getUnpremultiplyState() const = 0;
    virtual CoRgbColorTyped<float> getUnpremultiplyBgColor() const = 0;
    virtual CoMotionVectorInfo getMotionVectorInfo() const = 0;
    virtual std::string getPath() const = 0;
    virtual std::string getFileExtension() const = 0;
    // Whether a tool registered for the extension can read this very file.
    virtual bool isFormatSupported() const = 0;
    // False for a dragged thing that is not a file of the file system.
    virtual bool isFileBased() const = 0;
    // The full name of the tool a drop makes; empty when none.
    virtual std::string getToolName() const = 0;
    // The tool a drop makes, null when none; with `check` the tool's checker reads the file.
    virtual RCShdPtr<PiNodeDndInterface const> getTool(bool check) const = 0;
    virtual bool willToolAcceptFile(std::string const& name, std::string const& manufacturer,
                                    int version, bool check) const = 0;
    virtual bool willToolAcceptFile(std::string const& toolName, int version, bool check) const = 0;
    virtual Rational getPixelRatio() const = 0;
    virtual Rational getRate() const = 0;
    // Bits per component.
    virtual std::uint32_t getDepth() const = 0;
    virtual DtTimeIndex getStartTime() const = 0;
    virtual std::string getSource() const = 0;
};

} // namespace Vn
