#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "TmKeyframe.h"
#include "VnExport.h"

#include <vector>

namespace Vn {

// The keys of one animated value, kept sorted by time, at most one key per time.
class VN_EXPORT TmTimeCurve : public RCBase<LkCounter<int>> {
public:
    using KeyPtr = RCShdPtr<TmKeyframe>;

    static RCShdPtr<TmTimeCurve> create();
    ~TmTimeCurve() override;

    // Puts the key in its place by time. A key already at that time is replaced and given
    // back, so that keying a time twice keeps the last value; else null. A null key raises
    // ExNullPtr.
    KeyPtr insert(KeyPtr const& key);
    // Takes this very key out; false when the curve does not hold it.
    bool remove(KeyPtr const& key);
    // Takes out the key at exactly that time; null when there is none.
    KeyPtr removeAt(double time);
    // The key at exactly that time, or null.
    KeyPtr find(double time) const;
    // The last key at or before the time, the first key after it; null at the ends.
    KeyPtr findAtOrBefore(double time) const;
    KeyPtr findAfter(double time) const;
    bool contains(KeyPtr const& key) const;

    int getSize() const noexcept { return static_cast<int>(_keys.size()); }
    bool isEmpty() const noexcept { return _keys.empty(); }
    // By increasing time.
    std::vector<KeyPtr> const& getKeyframes() const noexcept { return _keys; }
    void clear() { _keys.clear(); }

private:
    TmTimeCurve() = default;
    std::vector<KeyPtr>::const_iterator lowerBound(double time) const;
    std::vector<KeyPtr> _keys;
};

} // namespace Vn
