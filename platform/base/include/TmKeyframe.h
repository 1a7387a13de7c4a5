#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

namespace Vn {

// A key of an animation: a value at a time of the timeline, in seconds. The time is fixed at
// creation, so that a curve holding the key stays sorted; moving a key means making a new one.
class VN_EXPORT TmKeyframe : public RCBase<LkCounter<int>> {
public:
    // Raises ExBase for a time or value that is not finite.
    static RCShdPtr<TmKeyframe> create(double time, double value);
    ~TmKeyframe() override;

    double getTime() const noexcept { return _time; }
    double getValue() const noexcept { return _value; }
    // Raises ExBase for a value that is not finite.
    void setValue(double value);

private:
    TmKeyframe(double time, double value) noexcept : _time(time), _value(value) {}
    double const _time;
    double _value;
};

} // namespace Vn
