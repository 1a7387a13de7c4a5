#include "PiImageFileDetails.h"

namespace Vn {

PiImageFileDetails::PiImageFileDetails()
    : _details{{CHANNELS, "Unknown"},
               {DEPTH, "Unknown"},
               {TILED, "No"},
               {PIXEL_RATIO, "Not present"},
               {CLIP_TYPE, "Unknown"}} {}

PiImageFileDetails::PiImageFileDetails(bool tiled, std::string const& depth,
                                       std::string const& channels)
    : PiImageFileDetails() {
    _details[TILED] = tiled ? "Yes" : "No";
    _details[DEPTH] = depth;
    _details[CHANNELS] = channels;
}

PiImageFileDetails::~PiImageFileDetails() = default;

void PiImageFileDetails::setDetail(Details const& detail, std::string const& text) {
    _details[detail] = text;
}

void PiImageFileDetails::addCustomDetail(std::string const& name, std::string const& value) {
    _custom[name] = value;
}

std::string PiImageFileDetails::getDetail(Details const& detail) const {
    auto const it = _details.find(detail);
    return it == _details.end() ? std::string() : it->second;
}

std::string PiImageFileDetails::getDetailString() const {
    std::string s = "Channels=[" + getDetail(CHANNELS) + "] Depth=[" + getDetail(DEPTH) +
                    "] Tiled=[" + getDetail(TILED) + "] ";
    if (std::string const ratio = getDetail(PIXEL_RATIO); !ratio.empty())
        s += "PixelRatio=[" + ratio + "] ";
    if (std::string const clip = getDetail(CLIP_TYPE); clip != "Unknown")
        s += "ClipType=[" + clip + "]";
    for (auto const& [name, value] : _custom)
        s += name + "=[" + value + "]";
    return s;
}

} // namespace Vn
