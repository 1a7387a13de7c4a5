#pragma once

#include "DtTime.h"
#include "VnExport.h"

#include <string>
#include <utility>

namespace Vn {

// A named point of a timeline.
class VN_EXPORT TmMark {
public:
    TmMark() = default;
    TmMark(std::string name, DtTime time) : _name(std::move(name)), _time(time) {}

    std::string const& getName() const noexcept { return _name; }
    DtTime getTime() const noexcept { return _time; }
    void setName(std::string name) { _name = std::move(name); }
    void setTime(DtTime time) noexcept { _time = time; }
    bool operator==(TmMark const&) const = default;

private:
    std::string _name;
    DtTime _time;
};

} // namespace Vn
