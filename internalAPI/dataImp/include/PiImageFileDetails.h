#pragma once

#include "VnExport.h"

#include <map>
#include <string>

namespace Vn {

// Facts about an image file, with a one-line text form such as
// "Channels=[R,G,B,A] Depth=[16] Tiled=[No] PixelRatio=[Not present] ".
class VN_EXPORT PiImageFileDetails {
public:
    enum Details { CHANNELS, DEPTH, TILED, PIXEL_RATIO, CLIP_TYPE };

    // Every fact unknown: "Unknown", "Unknown", "No", "Not present", "Unknown".
    PiImageFileDetails();
    // The pixel ratio and clip type unknown.
    PiImageFileDetails(bool tiled, std::string const& depth, std::string const& channels);
    virtual ~PiImageFileDetails();

    void setDetail(Details const& detail, std::string const& text);
    // Replaces the value of a name already there.
    void addCustomDetail(std::string const& name, std::string const& value);
    std::string getDetail(Details const& detail) const;
    std::map<std::string, std::string> const& getCustomDetails() const noexcept { return _custom; }
    // Channels, depth and tiled, each followed by a blank; the pixel ratio when its text is not
    // empty; the clip type when known, without a blank; then the custom details by name.
    std::string getDetailString() const;

private:
    std::map<Details, std::string> _details;
    std::map<std::string, std::string> _custom;
};

} // namespace Vn
